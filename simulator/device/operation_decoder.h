#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "simulator/device/client.h"
#include "simulator/device/operation.h"

namespace zulisim {

// Completes the records of operations that the engine did not perform with what their bytes say:
// the client from the connect record, commands and statuses from the messages. Not thread-safe.
class OperationDecoder {
 public:
  explicit OperationDecoder(std::vector<Client> clients) : clients_(std::move(clients)) {}

  // Fills in the members of `record` that the device knows, from its sequence number on. Only an
  // open needs its descriptor. Records must come in the order of completion.
  void Decode(OperationRecord* record);

 private:
  struct Connection {
    int descriptor = -1;
    std::string client;
    std::optional<std::uint32_t> commandId;  // of the last request
    bool privateDataNext = false;            // the reply had a negative status
  };

  void Describe(Connection* connection, OperationRecord* record) const;
  std::string ClientName(const Bytes& connectRecord) const;

  const std::vector<Client> clients_;
  std::map<std::uint64_t, Connection> connections_;
  std::array<std::uint64_t, kOperationCount> counts_{};
  std::uint64_t sequence_ = 0;
};

}  // namespace zulisim
