#pragma once

#include <cstdint>
#include <vector>

#include "tools/call/message.h"
#include "transport/zuli_device.h"

class ClientSession;

namespace kaloctl {

// The firmware clients that the entry points can reach.
enum class Client { kKalo, kFenu };
enum class Generation { kVersion3, kEarlier };

const char* ClientName(Client client);

// The client that serves a command.
Client ClientOfCommand(uint32_t commandId);

// A session of the library, opened and closed as a driver does.
class DriverSession {
 public:
  DriverSession(Client client, Generation generation);
  DriverSession(const DriverSession&) = delete;
  DriverSession& operator=(const DriverSession&) = delete;
  ~DriverSession();

  // What the initialising call returned; the others are for a session that it opened.
  uint32_t status() const { return status_; }
  const char* InitName() const;
  const char* CommandName() const;

  // What the client told when it was connected.
  ZuliConnectRecord::Properties Properties() const;

  // Sends a request. `privateData` receives the 16 bytes at most that came; null asks for none.
  uint32_t Exchange(std::vector<uint8_t> request, ReplyBuffer& reply,
                    std::vector<uint8_t>* privateData);

 private:
  ClientSession* Session() const;

  Client client_;
  Generation generation_;
  void* handle_ = nullptr;
  uint32_t status_;
};

}  // namespace kaloctl
