#include "common/log_folder.h"

namespace common {
namespace {

bool AddsSink(const LogRecord& record) {
  return record.function == "KaloInit3" && record.text.rfind("Executing call to ", 0) == 0;
}

}  // namespace

void LogFolder::Add(LogRecord&& record) {
  if (copies_ != 0 && record == record_) {
    ++copies_;
    return;
  }
  Finish();
  record_ = std::move(record);
  copies_ = 1;
}

void LogFolder::Finish() {
  if (copies_ == 0) return;
  if (AddsSink(record_)) sinks_ = copies_;
  const bool whole = sinks_ != 0 && copies_ % sinks_ == 0;
  const std::size_t copiesEach = whole ? sinks_ : copies_;
  for (std::size_t shown = 0; shown < copies_; shown += copiesEach) {
    consumer_(record_, copiesEach);
  }
  copies_ = 0;
}

}  // namespace common
