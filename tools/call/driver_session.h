#pragma once

#include <cstdint>
#include <vector>

#include "tools/call/message.h"
#include "transport/zuli_device.h"

namespace kaloctl {

// The firmware clients that the entry points can reach.
enum class Client { kKalo, kFenu };

const char* ClientName(Client client);

// Returns the client that serves a command.
Client ClientOfCommand(std::uint32_t commandId);

// A session of the library. Opens and closes it as a driver does.
class DriverSession {
 public:
  explicit DriverSession(Client client);
  DriverSession(const DriverSession&) = delete;
  DriverSession& operator=(const DriverSession&) = delete;
  ~DriverSession();

  // Return the status of KaloInit3 or FenuInit3, and its name. The other functions require success.
  std::uint32_t status() const { return status_; }
  const char* InitName() const;

  // Returns the properties that the client reported when it was connected.
  ZuliConnectRecord::Properties Properties() const;

  // Sends a request and returns the status of StartIoEx3. Stores up to 16 bytes in `privateData`.
  std::uint32_t Exchange(std::vector<std::uint8_t> request, ReplyBuffer* reply,
                         std::vector<std::uint8_t>* privateData);

 private:
  const Client client_;
  void* handle_ = nullptr;
  const std::uint32_t status_;
};

}  // namespace kaloctl
