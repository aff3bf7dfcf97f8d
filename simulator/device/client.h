#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "simulator/device/device_abi.h"
#include "simulator/device/operation.h"

namespace zulisim {

// A client's identifier, in the byte order of memory and of the connect record.
using Guid = std::array<std::uint8_t, 16>;

// A firmware client of the engine.
struct Client {
  std::string name;
  Guid guid{};
  std::uint32_t maxMessageLength = 4096;  // bytes, up to kLongestMessage; longer requests fail
  std::uint8_t protocolVersion = 1;
};

// KALO, FENU and SAB, each with the defaults above.
std::vector<Client> DefaultClients();

// "{FBF6FCF1-96CF-4E2E-A6A6-1BAB8CBE36B1}"
std::string GuidText(const Guid& guid);
// Parses that form, with or without braces and dashes. Throws InputError.
Guid ParseGuid(const std::string& text);

// A client's answer to one request. Either part can be missing; without a message the client stays
// silent.
struct Reply {
  std::optional<Bytes> message;
  std::optional<Bytes> privateData;
  std::chrono::microseconds latency{0};  // from the write until a read gets it
  bool held = false;                     // and until ReleaseReplies()
};

// Answers one request. Runs on the thread of the write, without the engine's lock, so it may call
// the engine (to lose the device, for instance). When it throws, the client stays silent.
using Responder = std::function<Reply(const Bytes& request)>;

// The same header with `status`, the same body.
Reply EchoReply(const Bytes& request, std::uint32_t status = 0);
// The same with a private-data message after it.
Reply EchoReply(const Bytes& request, std::uint32_t status, Bytes privateData);

}  // namespace zulisim
