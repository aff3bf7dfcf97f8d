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

// Completes the records of operations that the engine did not perform. It takes the client from the
// connect record, and commands and statuses from the messages. Not thread-safe.
class OperationDecoder {
 public:
  explicit OperationDecoder(std::vector<Client> clients) : clients_(std::move(clients)) {}

  // Fills in `sequence` and all members after it. Only an open needs its descriptor. Records must
  // come in the order of completion.
  void Decode(OperationRecord* record);

 private:
  struct Connection {
    int descriptor = -1;
    std::string client;
    std::optional<std::uint32_t> commandId;  // command of the last request
    bool privateDataNext = false;            // the last reply had a negative status
  };

  void Describe(Connection* connection, OperationRecord* record) const;
  std::string ClientName(const Bytes& connectRecord) const;

  const std::vector<Client> clients_;
  std::map<std::uint64_t, Connection> connections_;
  std::array<std::uint64_t, kOperationCount> counts_{};
  std::uint64_t sequence_ = 0;
};

}  // namespace zulisim
