#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "simulator/device/client.h"
#include "simulator/device/operation.h"

namespace zulisim {

// Tells observers of operations that the engine did not perform, with what can be read from their
// bytes: the client from the connect record, commands and statuses from the messages. Any thread.
class OperationDecoder {
 public:
  explicit OperationDecoder(std::vector<Client> clients) : clients_(std::move(clients)) {}

  // `record` is complete but for what the device knows of it; of its descriptor, that of an open
  // counts alone.
  void Decode(OperationRecord record);
  void AddObserver(OperationObserver* observer);
  void RemoveObserver(OperationObserver* observer);

 private:
  struct Connection {
    int descriptor = -1;
    std::string client;
    std::optional<std::uint32_t> commandId;  // of the last request
    bool privateDataNext = false;            // the reply announced it
  };

  void Describe(Connection* connection, OperationRecord* record) const;
  std::string ClientName(const Bytes& connectRecord) const;

  const std::vector<Client> clients_;
  std::mutex mutex_;  // guards all that follows
  std::map<std::uint64_t, Connection> connections_;
  std::array<std::uint64_t, kOperationCount> counts_{};
  std::uint64_t sequence_ = 0;
  std::vector<OperationObserver*> observers_;
};

}  // namespace zulisim
