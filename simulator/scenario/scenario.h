#pragma once

#include <string>
#include <vector>

#include "simulator/device/client.h"
#include "simulator/engine/engine.h"
#include "simulator/engine/fault.h"
#include "simulator/engine/reply_plan.h"

namespace zulisim {

// The instructions for an engine: clients, replies and faults.
struct Scenario {
  std::vector<Client> clients = DefaultClients();
  std::size_t describedClients = 0;  // the number of [[client]] tables in files
  std::vector<ReplyRule> replies;
  std::vector<Fault> faults;
  std::vector<std::string> files;         // the paths of all files that were read
  std::vector<std::string> instructions;  // from the command line: "--lose read:2"
};

// Returns the clients' names for messages.
std::vector<std::string> ClientNames(const Scenario& scenario);
// Returns the client with that name, or null. Ignores case.
Client* FindClient(Scenario* scenario, const std::string& name);
// Like FindClient, but throws InputError with the known names if there is no such client.
Client& ClientOf(Scenario* scenario, const std::string& name);

// Adds the replies and faults to `engine`, which must have the scenario's clients. Throws
// std::invalid_argument for an unknown client or an impossible fault.
void Apply(const Scenario& scenario, Engine* engine);

}  // namespace zulisim
