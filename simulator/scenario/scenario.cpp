#include "simulator/scenario/scenario.h"

#include <strings.h>

#include <algorithm>
#include <utility>

#include "common/format.h"
#include "common/input_error.h"
#include "common/text.h"

namespace zulisim {

std::vector<std::string> ClientNames(const Scenario& scenario) {
  std::vector<std::string> names;
  for (const Client& client : scenario.clients) names.push_back(common::Printable(client.name));
  return names;
}

Client* FindClient(Scenario* scenario, const std::string& name) {
  const auto found = std::find_if(
      scenario->clients.begin(), scenario->clients.end(),
      [&name](const Client& client) { return strcasecmp(client.name.c_str(), name.c_str()) == 0; });
  return found == scenario->clients.end() ? nullptr : &*found;
}

Client& ClientOf(Scenario* scenario, const std::string& name) {
  Client* client = FindClient(scenario, name);
  if (client != nullptr) return *client;
  const std::vector<std::string> known = ClientNames(*scenario);
  throw common::InputError(common::Format("unknown client {}; expected {}{}", common::Quoted(name),
                                          common::Joined(known), common::NearestHint(name, known)));
}

void Apply(const Scenario& scenario, Engine* engine) {
  for (const ReplyRule& rule : scenario.replies) engine->AddReply(rule);
  for (const Fault& fault : scenario.faults) engine->AddFault(fault);
}

}  // namespace zulisim
