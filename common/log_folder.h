#pragma once

#include <cstddef>
#include <functional>
#include <utility>

#include "common/log_splitter.h"

namespace common {

// Merges consecutive copies of a message. Each call of KaloInit3 in a process adds one more sink
// for the same file, so the library writes every later message once more. The number of copies of
// KaloInit3's first message shows the number of sinks. A message that the library logs twice stays
// two messages.
class LogFolder {
 public:
  using Consumer = std::function<void(const LogRecord& record, std::size_t copies)>;

  explicit LogFolder(Consumer consumer) : consumer_(std::move(consumer)) {}

  void Add(LogRecord&& record);

  // Call this at the end of the log.
  void Finish();

 private:
  Consumer consumer_;
  LogRecord record_;
  std::size_t copies_ = 0;
  // 0 before the first KaloInit3 in the log.
  std::size_t sinks_ = 0;
};

}  // namespace common
