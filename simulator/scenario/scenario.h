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
  std::size_t describedClients = 0;  // the number of [[client]] tables
  std::vector<ReplyRule> replies;
  std::vector<Fault> faults;
  std::vector<std::string> files;         // names of the files that were read
  std::vector<std::string> instructions;  // as on the command line: "--lose read:2"
};

// The names, printable.
std::vector<std::string> ClientNames(const Scenario& scenario);
// The client of that name, in either case of letters, or null.
Client* FindClient(Scenario* scenario, const std::string& name);
// The same, but throws InputError with the known names.
Client& ClientOf(Scenario* scenario, const std::string& name);

// Adds the replies and faults to `engine`, which was made with the scenario's clients. Throws
// std::invalid_argument for an unknown client or an impossible fault.
void Apply(const Scenario& scenario, Engine* engine);

}  // namespace zulisim
