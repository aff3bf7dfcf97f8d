#pragma once

#include <mutex>
#include <utility>
#include <vector>

#include "simulator/device/client.h"
#include "simulator/device/device.h"
#include "simulator/device/operation_decoder.h"

namespace zulisim {

// A device that does not interpret its operations itself, so that a decoder describes them for the
// observers. Thread-safe.
class DecodedDevice : public Device {
 protected:
  // `clients` give names to GUIDs.
  explicit DecodedDevice(std::vector<Client> clients) : decoder_(std::move(clients)) {}

  // Decodes the completed operation and shows it to the observers.
  void Publish(OperationRecord record) {
    std::lock_guard<std::mutex> lock(decoderMutex_);
    decoder_.Decode(&record);
    Notify(record);
  }

 private:
  std::mutex decoderMutex_;  // keeps the observers' order that of the decoder
  OperationDecoder decoder_;
};

}  // namespace zulisim
