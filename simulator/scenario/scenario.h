#pragma once

#include <string>
#include <vector>

#include "simulator/device/client.h"
#include "simulator/engine/engine.h"
#include "simulator/engine/fault.h"
#include "simulator/engine/reply_plan.h"

namespace zulisim {

// All that an engine can be told before a program starts.
struct Scenario {
  std::vector<Client> clients = DefaultClients();
  std::size_t describedClients = 0;  // by files, as tables of their own
  std::vector<ReplyRule> replies;
  std::vector<Fault> faults;
  std::vector<std::string> files;         // that it was read from
  std::vector<std::string> instructions;  // as on the command line: "--lose read:2"
};

// As messages show them.
std::vector<std::string> ClientNames(const Scenario& scenario);
// The client of that name, in either case of letters, or null.
Client* FindClient(Scenario* scenario, const std::string& name);
// The same, or InputError with the names that there are.
Client& ClientOf(Scenario* scenario, const std::string& name);

// Adds a rule that ReplyError has nothing against. Throws InputError that names the rule which
// answers some of the same requests already.
void AddReplyRule(ReplyRule rule, Scenario* scenario);

// Tells `engine`, which was made with the scenario's clients, about replies and faults. Throws
// std::invalid_argument for an unknown client or a fault that can never strike.
void Apply(const Scenario& scenario, Engine* engine);

// A line for each fault and reply of the scenario that `engine`, to which it was applied, has not
// met, or not as often as was asked for.
std::vector<std::string> Missed(const Scenario& scenario, const Engine& engine);
// A line for each of them all, with how often it was met.
std::vector<std::string> Met(const Scenario& scenario, const Engine& engine);

}  // namespace zulisim
