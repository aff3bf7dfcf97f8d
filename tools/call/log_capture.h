#pragma once

#include <memory>
#include <string>
#include <vector>

namespace kaloctl {

// Collects the library's log lines in this process. The library cannot remove a sink, so create one
// capture per process. Not thread-safe.
class LogCapture {
 public:
  enum class Detail { kOrdinary, kTrace };

  // kTrace enables the trace lines, here and in the library's log file.
  explicit LogCapture(Detail detail);

  // Returns the lines that were logged since the last call, without line feeds.
  std::vector<std::string> Take();

 private:
  std::shared_ptr<std::vector<std::string>> lines_;
};

}  // namespace kaloctl
