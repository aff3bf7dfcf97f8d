#include "simulator/scenario/scenario.h"

#include <strings.h>

#include <algorithm>

#include "common/input_error.h"
#include "common/text.h"

namespace zulisim {
namespace {

Reply ReplyTo(const ReplyRule& rule, const Bytes& request) {
  if (rule.silent) return {};
  Reply reply = EchoReply(request, rule.status);
  if (rule.body) {
    reply.message->resize(kHeaderSize);
    reply.message->insert(reply.message->end(), rule.body->begin(), rule.body->end());
  }
  reply.privateData = rule.privateData;
  reply.latency = rule.latency;
  return reply;
}

}  // namespace

std::vector<std::string> ClientNames(const Scenario& scenario) {
  std::vector<std::string> names;
  for (const Client& client : scenario.clients) names.push_back(client.name);
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
  throw common::InputError(common::Quoted(name) + " is not a client; known are " +
                           common::Joined(known) + common::NearestHint(name, known));
}

void Apply(const Scenario& scenario, Engine* engine) {
  for (const ReplyRule& rule : scenario.replies) {
    const Responder responder = [rule](const Bytes& request) { return ReplyTo(rule, request); };
    if (rule.command) {
      engine->SetResponder(rule.client, *rule.command, responder);
    } else {
      engine->SetResponder(rule.client, responder);
    }
  }
  for (const Fault& fault : scenario.faults) engine->AddFault(fault);
}

}  // namespace zulisim
