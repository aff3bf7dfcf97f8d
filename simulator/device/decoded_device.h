#pragma once

#include <mutex>
#include <utility>
#include <vector>

#include "simulator/device/client.h"
#include "simulator/device/device.h"
#include "simulator/device/operation_decoder.h"

namespace zulisim {

// A device whose operations a decoder describes for the observers. Thread-safe.
class DecodedDevice : public Device {
 public:
  Result Perform(OperationRecord record, void* target) final;

 protected:
  // `clients` contains the names that belong to the GUIDs.
  explicit DecodedDevice(std::vector<Client> clients) : decoder_(std::move(clients)) {}

 private:
  // Fills in what the program gets, and the connection of an open that succeeds. The output goes to
  // `target` too, unless that is null. Returns false for an abandoned close of a connection that is
  // not open: observers do not see it.
  virtual bool Execute(OperationRecord* record, void* target) = 0;
  // Runs after the observers saw the close.
  virtual void OnClosed(std::uint64_t connection) { static_cast<void>(connection); }

  std::mutex decoderMutex_;  // so that observers and the decoder see the same order
  OperationDecoder decoder_;
};

}  // namespace zulisim
