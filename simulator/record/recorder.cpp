#include "simulator/record/recorder.h"

#include <utility>

#include "simulator/record/recording.h"

namespace zulisim {

Recorder::Recorder(Device* device, RecordingSink sink, const std::vector<std::string>& program,
                   const std::vector<Client>& clients, bool redact)
    : device_(device),
      start_(Now()),
      sink_(std::move(sink)),
      head_(RecordingHead(program, clients)),
      redact_(redact) {
  device_->AddObserver(this);
}

Recorder::~Recorder() {
  device_->RemoveObserver(this);
  if (number_ > 0) sink_(kRecordingEnd);
}

void Recorder::OnOperation(const OperationRecord& record) {
  OperationRecord moved = record;
  moved.start -= start_;
  moved.end -= start_;
  if (number_ == 0) sink_(head_);
  sink_(RecordingEntry(++number_, moved, redact_));
}

}  // namespace zulisim
