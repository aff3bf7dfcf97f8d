#pragma once

#include <cstddef>
#include <functional>
#include <utility>

#include "common/log_splitter.h"

namespace common {

// Folds the copies that stand in a row: every KaloInit3 of a process adds one more sink for the
// same file, so that from its first line on each message is written once more. That line shows how
// many sinks there are; a message that the library wrote twice stays two.
class LogFolder {
 public:
  using Consumer = std::function<void(const LogRecord& record, std::size_t copies)>;

  explicit LogFolder(Consumer consumer) : consumer_(std::move(consumer)) {}

  void Add(LogRecord&& record);

  // The log ends here.
  void Finish();

 private:
  Consumer consumer_;
  LogRecord record_;
  std::size_t copies_ = 0;
  // 0 before the first KaloInit3 that the log shows.
  std::size_t sinks_ = 0;
};

}  // namespace common
