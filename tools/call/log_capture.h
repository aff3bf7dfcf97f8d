#pragma once

#include <memory>
#include <string>
#include <vector>

namespace kaloctl {

// Collects the log lines of this process's calls into the library. There is no way to take a sink
// back, so one capture is made and kept. For calls from one thread.
class LogCapture {
 public:
  enum class Detail { kOrdinary, kTrace };

  // With kTrace the library's trace lines are logged too, to its log file as well.
  explicit LogCapture(Detail detail);

  // The lines since the last call, each without the line ends it may have at its end.
  std::vector<std::string> Take();

 private:
  std::shared_ptr<std::vector<std::string>> lines_;
};

}  // namespace kaloctl
