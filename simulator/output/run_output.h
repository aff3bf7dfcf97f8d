#pragma once

#include <memory>
#include <string>
#include <vector>

#include "simulator/device/device.h"

namespace zulisim {

// What a run writes down. A file that is not named is not written.
struct OutputOptions {
  std::string transcriptFile;
  std::string traceFile;           // Chrome trace events
  std::string reportFile;          // one HTML page
  bool quiet = false;              // no transcript on standard error
  bool connectionNumbers = false;  // TranscriptStyle::connectionNumbers
};

// Writes that down until the end of its life, which completes the files. The device must outlive
// it. Throws std::runtime_error for a file that cannot be written; `program` names the run in it.
class RunOutput {
 public:
  RunOutput(const OutputOptions& options, const std::vector<std::string>& program, Device* device);
  ~RunOutput();
  RunOutput(const RunOutput&) = delete;
  RunOutput& operator=(const RunOutput&) = delete;

 private:
  template <typename Observer, typename... Arguments>
  void Add(Arguments... arguments);

  Device* device_;
  std::vector<std::unique_ptr<OperationObserver>> observers_;
};

}  // namespace zulisim
