#include "simulator/record/recorder.h"

#include <optional>
#include <utility>

#include "simulator/device/raw_call.h"
#include "simulator/record/recording.h"

namespace zulisim {
namespace {

// What the device told of the operation that this thread performs.
thread_local std::optional<std::string> told;

RawOperation Begin(RawOperation call) {
  told.reset();
  return call;
}

}  // namespace

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

void Recorder::OnOperation(const OperationRecord& record) { told = record.why; }

Result Recorder::Finish(RawOperation* raw, Result result) {
  raw->result = result;
  raw->took = Now() - raw->start;
  raw->start -= start_;
  raw->note = told.value_or("");
  std::lock_guard<std::mutex> lock(mutex_);
  sink_(RecordingEntry(++number_, *raw));
  return result;
}

Result Recorder::Open(int flags, unsigned mode, int descriptor) {
  RawOperation raw = Begin(OpenCall(flags, mode));
  const Result result = device_->Open(flags, mode, descriptor);
  if (result.value > 0) raw.connection = static_cast<std::uint64_t>(result.value);
  return Finish(&raw, result);
}

Result Recorder::Ioctl(std::uint64_t connection, std::uint32_t request, void* argument) {
  RawOperation raw = Begin(IoctlCall(connection, request, argument));
  const Result result = device_->Ioctl(connection, request, argument);
  raw.output = Copied(argument, OutputSize(raw));
  return Finish(&raw, result);
}

Result Recorder::Read(std::uint64_t connection, void* buffer, std::size_t length) {
  RawOperation raw = Begin(ReadCall(connection, buffer, length));
  raw.result = device_->Read(connection, buffer, length);
  raw.output = Copied(buffer, OutputSize(raw));
  return Finish(&raw, raw.result);
}

Result Recorder::Write(std::uint64_t connection, const void* buffer, std::size_t length) {
  RawOperation raw = Begin(WriteCall(connection, buffer, length));
  return Finish(&raw, device_->Write(connection, buffer, length));
}

Result Recorder::Close(std::uint64_t connection) {
  RawOperation raw = Begin(CloseCall(connection));
  return Finish(&raw, device_->Close(connection));
}

void Recorder::Release(std::uint64_t connection) {
  RawOperation raw = Begin(GoneCall(connection));
  device_->Release(connection);
  if (told) Finish(&raw, {});  // else the connection was closed already
}

}  // namespace zulisim
