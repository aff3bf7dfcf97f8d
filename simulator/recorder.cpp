#include "simulator/recorder.h"

#include <optional>
#include <utility>

#include "simulator/recording.h"

namespace zulisim {
namespace {

std::chrono::nanoseconds Now() { return std::chrono::steady_clock::now().time_since_epoch(); }

// What the device told of the operation that this thread performs.
thread_local std::optional<std::string> told;

Bytes Copied(const void* buffer, std::size_t length) {
  const auto* bytes = static_cast<const std::uint8_t*>(buffer);
  return buffer == nullptr ? Bytes() : Bytes(bytes, bytes + length);
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

RawOperation Recorder::Begin(Operation operation, std::uint64_t connection) const {
  told.reset();
  RawOperation raw;
  raw.operation = operation;
  raw.connection = connection;
  raw.start = Now() - start_;
  return raw;
}

Result Recorder::Finish(RawOperation* raw, Result result) {
  raw->result = result;
  raw->took = Now() - start_ - raw->start;
  raw->note = told.value_or("");
  std::lock_guard<std::mutex> lock(mutex_);
  sink_(RecordingEntry(++number_, *raw));
  return result;
}

Result Recorder::Open(int flags, unsigned mode, int descriptor) {
  RawOperation raw = Begin(Operation::kOpen, 0);
  raw.flags = flags;
  raw.mode = OpenMode(flags, mode);
  const Result result = device_->Open(flags, mode, descriptor);
  if (result.value > 0) raw.connection = static_cast<std::uint64_t>(result.value);
  return Finish(&raw, result);
}

Result Recorder::Ioctl(std::uint64_t connection, std::uint32_t request, void* argument) {
  RawOperation raw = Begin(Operation::kIoctl, connection);
  raw.request = request;
  raw.hasBuffer = argument != nullptr;
  raw.input = Copied(argument, InputSize(raw));
  const Result result = device_->Ioctl(connection, request, argument);
  raw.output = Copied(argument, OutputSize(raw));
  return Finish(&raw, result);
}

Result Recorder::Read(std::uint64_t connection, void* buffer, std::size_t length) {
  RawOperation raw = Begin(Operation::kRead, connection);
  raw.length = length;
  raw.hasBuffer = buffer != nullptr;
  raw.result = device_->Read(connection, buffer, length);
  raw.output = Copied(buffer, OutputSize(raw));
  return Finish(&raw, raw.result);
}

Result Recorder::Write(std::uint64_t connection, const void* buffer, std::size_t length) {
  RawOperation raw = Begin(Operation::kWrite, connection);
  raw.length = length;
  raw.hasBuffer = buffer != nullptr;
  raw.input = Copied(buffer, InputSize(raw));
  return Finish(&raw, device_->Write(connection, buffer, length));
}

Result Recorder::Close(std::uint64_t connection) {
  RawOperation raw = Begin(Operation::kClose, connection);
  return Finish(&raw, device_->Close(connection));
}

void Recorder::Release(std::uint64_t connection) {
  RawOperation raw = Begin(Operation::kClose, connection);
  raw.gone = true;
  device_->Release(connection);
  if (told) Finish(&raw, {});  // else the connection was closed already
}

}  // namespace zulisim
