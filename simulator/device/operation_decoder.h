#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "simulator/device/client.h"
#include "simulator/device/raw_operation.h"

namespace zulisim {

// Tells observers of operations that were not performed by the engine, with what can be read from
// their bytes: the client from the connect record, commands and statuses from the messages. Any
// thread.
class Narrator {
 public:
  explicit Narrator(std::vector<Client> clients) : clients_(std::move(clients)) {}

  // `descriptor` matters for an open alone.
  void Tell(const RawOperation& raw, int descriptor = -1);
  void AddObserver(OperationObserver* observer);
  void RemoveObserver(OperationObserver* observer);

 private:
  struct Connection {
    int descriptor = -1;
    std::string client;
    std::optional<std::uint32_t> commandId;  // of the last request
    bool privateDataNext = false;            // the reply announced it
  };

  void Describe(const RawOperation& raw, Connection* connection, OperationRecord* record) const;
  std::string ClientName(const Bytes& connectRecord) const;

  const std::vector<Client> clients_;
  std::mutex mutex_;  // guards all that follows
  std::map<std::uint64_t, Connection> connections_;
  std::array<std::uint64_t, kOperationCount> counts_{};
  std::uint64_t sequence_ = 0;
  std::vector<OperationObserver*> observers_;
};

}  // namespace zulisim
