#include "simulator/record/recorder.h"

#include <utility>

#include "simulator/record/recording.h"

namespace zulisim {

Recorder::Recorder(Device* device, RecordingSink sink, const std::vector<std::string>& program,
                   const std::vector<Client>& clients)
    : device_(device), start_(Now()), sink_(std::move(sink)) {
  sink_(RecordingHead(program, clients));
  device_->AddObserver(this);
}

Recorder::~Recorder() {
  device_->RemoveObserver(this);
  sink_(kRecordingEnd);
}

void Recorder::OnOperation(const OperationRecord& record) {
  OperationRecord moved = record;
  moved.start -= start_;
  moved.end -= start_;
  sink_(RecordingEntry(++number_, moved));
}

}  // namespace zulisim
