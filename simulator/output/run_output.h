#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "common/file_follower.h"
#include "common/log_folder.h"
#include "simulator/device/device.h"
#include "simulator/output/output_writer.h"

namespace zulisim {

// What a run writes down. A file that is not named is not written.
struct OutputOptions {
  std::string transcriptFile;
  std::string traceFile;               // Chrome trace events
  std::string reportFile;              // one HTML page
  bool quiet = false;                  // no transcript on standard error
  bool connectionNumbers = false;      // TranscriptStyle::connectionNumbers
  bool time = false;                   // in the transcript
  std::optional<std::uint32_t> bytes;  // TranscriptStyle::bytes
  bool log = false;                    // the library's log lines, in their places
  bool logDetail = false;              // its detailed ones too
  bool redact = false;                 // no message bodies and no private data
};

// What the report says of the run.
struct RunDescription {
  std::vector<std::string> program;
  std::vector<std::string> instructions;  // as on the command line: "--lose read:2"
  std::string logFile;                    // of the library; empty when there is none to follow
};

// Writes that down until the end of its life, which completes the files. The device must outlive
// it; it is null for a recording, whose operations the caller tells of. Throws std::runtime_error
// for a file that cannot be written.
class RunOutput : public OperationObserver {
 public:
  RunOutput(const OutputOptions& options, const RunDescription& run, Device* device);
  ~RunOutput() override;
  RunOutput(const RunOutput&) = delete;
  RunOutput& operator=(const RunOutput&) = delete;

  // The program has ended with that status, which is handed back.
  int Ended(int status);

  void OnOperation(const OperationRecord& record) override;

 private:
  void PassOnLog();  // with the lock held

  Device* device_;
  const bool redact_;
  std::mutex mutex_;  // guards all that follows: the program may have left another behind
  std::vector<std::unique_ptr<OutputWriter>> writers_;
  std::unique_ptr<common::FileFollower> log_;
  common::LogFolder folder_;
};

}  // namespace zulisim
