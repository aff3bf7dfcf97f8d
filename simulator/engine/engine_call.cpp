// The course of each operation: its begin, what prevents it, its end.

#include <cerrno>

#include "simulator/engine/engine.h"
#include "simulator/device/raw_call.h"

namespace zulisim {
namespace {

std::string Occurrence(const OperationRecord& record) {
  return std::string(OperationName(record.operation)) + " " + std::to_string(record.occurrence);
}

}  // namespace

Engine::Call Engine::Begin(Operation operation, std::uint64_t connection) {
  Call call;
  call.record.operation = operation;
  call.record.occurrence = ++counts_[static_cast<std::size_t>(operation)];
  call.record.connection = connection;
  call.record.start = Now();
  const auto found = connections_.find(connection);
  if (found != connections_.end()) {
    call.connection = &found->second;
    call.record.descriptor = found->second.descriptor;
    if (found->second.client != nullptr) call.record.client = found->second.client->name;
  }
  return call;
}

Result Engine::Finish(Call* call, std::int64_t value) {
  call->record.result = value;
  call->record.sequence = nextSequence_++;
  call->record.end = Now();
  for (OperationObserver* observer : observers_) observer->OnOperation(call->record);
  const int error = call->record.error;
  if (keepRecords_) records_.push_back(std::move(call->record));
  return {value, error};
}

Result Engine::Fail(Call* call, int error, std::string why) {
  call->record.error = error;
  call->record.why = std::move(why);
  return Finish(call, -1);
}

std::optional<Result> Engine::Prevented(Call* call) {
  if (call->connection == nullptr) return Fail(call, EBADF, "the connection is not open");
  if (const auto failure = PreventedByFault(call)) return failure;
  if (call->connection->lost) {
    return Fail(call, ENODEV, "the device was lost after this descriptor was opened");
  }
  return std::nullopt;
}

std::optional<Result> Engine::PreventedByFault(Call* call) {
  const Fault* fault = faults_.Match(call->record.operation, call->record.occurrence);
  if (fault == nullptr) return std::nullopt;
  if (const auto* errnoFault = std::get_if<ErrnoFault>(&fault->effect)) {
    return Fail(call, errnoFault->error, "fault at " + Occurrence(call->record));
  }
  if (const auto* loss = std::get_if<DeviceLoss>(&fault->effect)) {
    Lose(*loss);
    const std::string why = "the device is lost at " + Occurrence(call->record);
    if (call->record.operation != Operation::kClose) return Fail(call, ENODEV, why);
    call->record.why = why;
    return std::nullopt;
  }
  const std::size_t count = std::get<ShortCount>(fault->effect).count;
  if (count < call->limit) {
    call->limit = count;
    call->record.why = "cut by a fault at " + Occurrence(call->record);
  }
  return std::nullopt;
}

std::optional<Result> Engine::PreventedTransfer(Call* call, const void* buffer,
                                                std::size_t length) {
  if (const auto failure = Prevented(call)) return failure;
  if (call->connection->client == nullptr) {
    return Fail(call, ENOTCONN, "the descriptor is not connected to a client");
  }
  if (buffer == nullptr && length > 0)
    return Fail(call, EFAULT, "the buffer is null or not readable");
  return std::nullopt;
}

}  // namespace zulisim
