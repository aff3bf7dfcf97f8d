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

// A client's identifier, in the byte order of the connect record.
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

// What a client sends for one request. Without a message the client stays silent.
struct Reply {
  std::optional<Bytes> message;
  std::optional<Bytes> privateData;
  std::chrono::microseconds latency{0};  // from the write; a read waits for it
  bool held = false;                     // a read also waits for Engine::ReleaseReplies
};

// Answers one request. The engine calls it on the thread of the write without holding a lock, so it
// may call the engine, for example to lose the device. When it throws, the client stays silent.
using Responder = std::function<Reply(const Bytes& request)>;

// Returns a reply with the request's header and body, and with `status`. Private data, if there is
// any, follows as a message of its own.
Reply EchoReply(const Bytes& request, std::uint32_t status = 0,
                std::optional<Bytes> privateData = std::nullopt);

}  // namespace zulisim
