#include "simulator/device/device.h"

#include <algorithm>

namespace zulisim {

void Device::AddObserver(OperationObserver* observer) {
  std::lock_guard<std::mutex> lock(observersMutex_);
  observers_.push_back(observer);
}

void Device::RemoveObserver(OperationObserver* observer) {
  std::lock_guard<std::mutex> lock(observersMutex_);
  observers_.erase(std::remove(observers_.begin(), observers_.end(), observer), observers_.end());
}

void Device::Notify(const OperationRecord& record) {
  std::lock_guard<std::mutex> lock(observersMutex_);
  for (OperationObserver* observer : observers_) observer->OnOperation(record);
}

void Device::Notify(const DeviceEvent& event) {
  std::lock_guard<std::mutex> lock(observersMutex_);
  for (OperationObserver* observer : observers_) observer->OnDeviceEvent(event);
}

}  // namespace zulisim
