#include "simulator/scenario/scenario.h"

#include <strings.h>

#include <algorithm>
#include <stdexcept>

#include "simulator/scenario/values.h"

namespace zulisim {
namespace {

Reply Answer(const ReplyRule& rule, const Bytes& request) {
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

Client* FindClient(Scenario* scenario, const std::string& name) {
  const auto found = std::find_if(
      scenario->clients.begin(), scenario->clients.end(),
      [&name](const Client& client) { return strcasecmp(client.name.c_str(), name.c_str()) == 0; });
  return found == scenario->clients.end() ? nullptr : &*found;
}

Client& ClientOf(Scenario* scenario, const std::string& name) {
  Client* client = FindClient(scenario, name);
  if (client != nullptr) return *client;
  std::vector<std::string> known;
  for (const Client& candidate : scenario->clients) known.push_back(candidate.name);
  const std::string hint = NearestHint(name, known);
  throw std::invalid_argument(Quoted(name) + " is no client; known are " + Listed(known) + hint);
}

void Apply(const Scenario& scenario, Engine* engine) {
  for (const ReplyRule& rule : scenario.replies) {
    const Responder responder = [rule](const Bytes& request) { return Answer(rule, request); };
    if (rule.command) {
      engine->SetResponder(rule.client, *rule.command, responder);
    } else {
      engine->SetResponder(rule.client, responder);
    }
  }
  for (const Fault& fault : scenario.faults) engine->AddFault(fault);
}

}  // namespace zulisim
