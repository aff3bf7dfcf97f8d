#include "simulator/device/device.h"

#include <algorithm>
#include <utility>

namespace zulisim {
namespace {

thread_local int callingProcess = 0;
thread_local int callingThread = 0;

OperationRecord Begin(Operation operation, std::uint64_t connection) {
  OperationRecord record;
  record.process = callingProcess;
  record.thread = callingThread;
  record.operation = operation;
  record.connection = connection;
  record.start = Now();
  return record;
}

}  // namespace

void SetCaller(int process, int thread) {
  callingProcess = process;
  callingThread = thread;
}

Result Device::Open(int flags, unsigned mode, int descriptor) {
  OperationRecord record = Begin(Operation::kOpen, 0);
  record.openFlags = flags;
  record.openMode = mode;
  record.descriptor = descriptor;
  return Perform(std::move(record), nullptr);
}

Result Device::Ioctl(std::uint64_t connection, std::uint32_t request, void* argument) {
  OperationRecord record = Begin(Operation::kIoctl, connection);
  record.request = request;
  record.hasBuffer = argument != nullptr;
  record.input = Copied(argument, record.InputSize());
  return Perform(std::move(record), argument);
}

Result Device::Read(std::uint64_t connection, void* buffer, std::size_t length, bool nonBlocking) {
  OperationRecord record = Begin(Operation::kRead, connection);
  record.length = length;
  record.nonBlocking = nonBlocking;
  record.hasBuffer = buffer != nullptr;
  return Perform(std::move(record), buffer);
}

Result Device::Write(std::uint64_t connection, const void* buffer, std::size_t length) {
  OperationRecord record = Begin(Operation::kWrite, connection);
  record.length = length;
  record.hasBuffer = buffer != nullptr;
  record.input = Copied(buffer, record.InputSize());
  return Perform(std::move(record), nullptr);
}

Result Device::Close(std::uint64_t connection, CloseReason reason) {
  OperationRecord record = Begin(Operation::kClose, connection);
  if (reason != CloseReason::kProgramClosed) {
    record.abandoned = true;
    record.why = CloseReasonText(reason);
    record.process = record.thread = 0;
  }
  return Perform(std::move(record), nullptr);
}

void Device::AddObserver(OperationObserver* observer) {
  std::lock_guard<std::mutex> lock(observersMutex_);
  observers_.push_back(observer);
}

void Device::RemoveObserver(OperationObserver* observer) {
  std::lock_guard<std::mutex> lock(observersMutex_);
  observers_.erase(std::remove(observers_.begin(), observers_.end(), observer), observers_.end());
}

void Device::Notify(const OperationRecord& record) {
  used_ = true;
  std::lock_guard<std::mutex> lock(observersMutex_);
  for (OperationObserver* observer : observers_) observer->OnOperation(record);
}

void Device::Notify(const DeviceEvent& event) {
  std::lock_guard<std::mutex> lock(observersMutex_);
  for (OperationObserver* observer : observers_) observer->OnDeviceEvent(event);
}

}  // namespace zulisim
