#include "simulator/record/recorder.h"

#include <ctime>
#include <utility>

#include "common/format.h"

namespace zulisim {

Recorder::Recorder(Device* device, RecordingSink sink, RecordingHeader header)
    : device_(device), start_(Now()), sink_(std::move(sink)), header_(std::move(header)) {
  struct timespec now {};
  clock_gettime(CLOCK_REALTIME, &now);
  std::tm time{};
  char text[32] = "";
  std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S", gmtime_r(&now.tv_sec, &time));
  header_.started = common::Format("{}.{:06}Z", text, now.tv_nsec / 1000);
  device_->AddObserver(this);
}

Recorder::~Recorder() {
  device_->RemoveObserver(this);
  if (started_) sink_(kCompleteLine);
}

void Recorder::OnOperation(const OperationRecord& record) {
  OperationRecord moved = record;
  moved.start -= start_;
  moved.end -= start_;
  if (header_.redacted) RemoveBodies(&moved);
  if (!std::exchange(started_, true)) sink_(HeaderLine(header_));
  sink_(OperationLine(moved));
}

}  // namespace zulisim
