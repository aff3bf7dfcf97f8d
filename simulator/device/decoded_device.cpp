#include "simulator/device/decoded_device.h"

namespace zulisim {

Result DecodedDevice::Perform(OperationRecord record, void* target) {
  if (!Execute(&record, target)) return {};
  record.end = Now();
  {
    std::lock_guard<std::mutex> lock(decoderMutex_);
    decoder_.Decode(&record);
    Notify(record);
  }
  if (record.operation == Operation::kClose) OnClosed(record.connection);
  return record.ReturnValue();
}

}  // namespace zulisim
