#include "common/log_folder.h"

namespace common {

void LogFolder::Add(LogRecord&& record) {
  if (!(record == record_)) {
    Finish();
    record_ = std::move(record);
  }
  ++copies_;
}

void LogFolder::Finish() {
  if (copies_ == 0) return;
  const bool addsSink =
      record_.function == "KaloInit3" && record_.text.rfind("Executing call to ", 0) == 0;
  if (addsSink) sinks_ = copies_;
  const bool whole = sinks_ != 0 && copies_ % sinks_ == 0;
  const std::size_t copiesEach = whole ? sinks_ : copies_;
  for (std::size_t shown = 0; shown < copies_; shown += copiesEach) {
    consumer_(record_, copiesEach);
  }
  copies_ = 0;
}

}  // namespace common
