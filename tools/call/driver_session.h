#pragma once

#include <cstdint>
#include <vector>

#include "tools/call/message.h"
#include "transport/zuli_device.h"

namespace kaloctl {

// The firmware clients that the library's entry points can reach.
enum class Client { kKalo, kFenu };

const char* ClientName(Client client);

// Returns the client that handles a command.
Client ClientOfCommand(std::uint32_t commandId);

// A session with a client. Opens and closes the library's handle in the same way as a driver.
class DriverSession {
 public:
  explicit DriverSession(Client client);
  DriverSession(const DriverSession&) = delete;
  DriverSession& operator=(const DriverSession&) = delete;
  ~DriverSession();

  // Return the status and the name of the init call, KaloInit3 or FenuInit3. Call the other
  // functions only after success.
  std::uint32_t status() const { return status_; }
  const char* InitName() const;

  // Returns the properties that the client reported on connection.
  ZuliConnectRecord::Properties Properties() const;

  // Sends a request and returns the status of StartIoEx3. Stores up to 16 bytes of private data in
  // `privateData`.
  std::uint32_t Exchange(std::vector<std::uint8_t> request, ReplyBuffer* reply,
                         std::vector<std::uint8_t>* privateData);

 private:
  const Client client_;
  void* handle_ = nullptr;
  const std::uint32_t status_;
};

}  // namespace kaloctl
