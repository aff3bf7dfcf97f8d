#pragma once

#include <mutex>
#include <utility>
#include <vector>

#include "simulator/device/client.h"
#include "simulator/device/device.h"
#include "simulator/device/operation_decoder.h"

namespace zulisim {

// Turns every call into a record. A derived class completes the record, and a decoder describes it
// for the observers. Thread-safe.
class DecodedDevice : public Device {
 public:
  Result Open(int flags, unsigned mode, int descriptor) final;
  Result Ioctl(std::uint64_t connection, std::uint32_t request, void* argument) final;
  Result Read(std::uint64_t connection, void* buffer, std::size_t length, bool nonBlocking) final;
  Result Write(std::uint64_t connection, const void* buffer, std::size_t length) final;
  Result Close(std::uint64_t connection, CloseReason reason) final;

 protected:
  // `clients` contains the names that belong to the GUIDs.
  explicit DecodedDevice(std::vector<Client> clients) : decoder_(std::move(clients)) {}

 private:
  // Fills in what the program gets, and the connection of an open that succeeds. The output goes to
  // `target` too, unless that is null. Returns false for an abandoned close of a connection that is
  // not open: observers do not see it.
  virtual bool Perform(OperationRecord* record, void* target, bool nonBlocking) = 0;
  // Runs after the observers saw the close.
  virtual void OnClosed(std::uint64_t connection) { static_cast<void>(connection); }

  Result Run(OperationRecord record, void* target = nullptr, bool nonBlocking = false,
             int descriptor = -1);

  std::mutex decoderMutex_;  // so that observers and the decoder see the same order
  OperationDecoder decoder_;
};

}  // namespace zulisim
