#include "simulator/device/decoded_device.h"

namespace zulisim {

Result DecodedDevice::Open(int flags, unsigned mode, int descriptor) {
  return Run(BeginOpen(flags, mode), nullptr, false, descriptor);
}

Result DecodedDevice::Ioctl(std::uint64_t connection, std::uint32_t request, void* argument) {
  return Run(BeginIoctl(connection, request, argument), argument);
}

Result DecodedDevice::Read(std::uint64_t connection, void* buffer, std::size_t length,
                           bool nonBlocking) {
  return Run(BeginRead(connection, buffer, length), buffer, nonBlocking);
}

Result DecodedDevice::Write(std::uint64_t connection, const void* buffer, std::size_t length) {
  return Run(BeginWrite(connection, buffer, length));
}

Result DecodedDevice::Close(std::uint64_t connection, CloseReason reason) {
  const Result result = Run(BeginClose(connection, reason));
  OnClosed(connection);
  return result;
}

Result DecodedDevice::Run(OperationRecord record, void* target, bool nonBlocking, int descriptor) {
  if (!Perform(&record, target, nonBlocking)) return {};
  record.end = Now();
  Result result{record.result, record.error};
  if (record.operation == Operation::kOpen && record.error == 0) {
    record.descriptor = descriptor;
    result.value = static_cast<std::int64_t>(record.connection);
  }
  std::lock_guard<std::mutex> lock(decoderMutex_);
  decoder_.Decode(&record);
  Notify(record);
  return result;
}

}  // namespace zulisim
