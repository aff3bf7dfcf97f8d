#include "simulator/scenario.h"

#include <strings.h>

#include <algorithm>

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
  return reply;
}

}  // namespace

Client* FindClient(Scenario* scenario, const std::string& name) {
  const auto found = std::find_if(
      scenario->clients.begin(), scenario->clients.end(),
      [&name](const Client& client) { return strcasecmp(client.name.c_str(), name.c_str()) == 0; });
  return found == scenario->clients.end() ? nullptr : &*found;
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
