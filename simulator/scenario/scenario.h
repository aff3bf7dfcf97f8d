#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/device/client.h"
#include "simulator/engine/engine.h"
#include "simulator/engine/fault.h"

namespace zulisim {

// How a client answers a command, or all commands that have no rule of their own.
struct ReplyRule {
  std::string client;
  std::optional<std::uint32_t> command;
  std::uint32_t status = 0;
  std::optional<Bytes> body;  // replaces the request's body after the header
  std::optional<Bytes> privateData;
  std::chrono::microseconds latency{0};
  bool silent = false;  // no reply at all
};

// All that an engine can be told before a program starts.
struct Scenario {
  std::vector<Client> clients = DefaultClients();
  std::vector<ReplyRule> replies;
  std::vector<Fault> faults;
  std::vector<std::string> files;         // that it was read from
  std::vector<std::string> instructions;  // as on the command line: "--lose read:2"
};

std::vector<std::string> ClientNames(const Scenario& scenario);
// The client of that name, in either case of letters, or null.
Client* FindClient(Scenario* scenario, const std::string& name);
// The same, or InputError with the names that there are.
Client& ClientOf(Scenario* scenario, const std::string& name);

// Tells `engine`, which was made with the scenario's clients, about replies and faults. Throws
// std::invalid_argument for an unknown client or a fault that can never strike.
void Apply(const Scenario& scenario, Engine* engine);

}  // namespace zulisim
