#include "simulator/scenario/scenario.h"

#include <strings.h>

#include <algorithm>
#include <utility>

#include "common/input_error.h"
#include "common/text.h"

namespace zulisim {
namespace {

struct Instruction {
  std::string origin;
  const char* kind = "";
  std::uint64_t wanted = 1;  // how often it is to be met at least
  Tally tally;
  std::string counted;  // "12 reads"
};

std::vector<Instruction> Instructions(const Scenario& scenario, const Engine& engine) {
  std::vector<Instruction> all;
  const std::vector<Tally> faults = engine.FaultTallies();
  for (std::size_t i = 0; i < scenario.faults.size(); ++i) {
    const Fault& fault = scenario.faults[i];
    const bool isCertain = fault.probability >= 1 && fault.times != kForever;
    const bool isLoss = std::holds_alternative<DeviceLoss>(fault.effect);
    all.push_back({fault.origin, isLoss ? "loss" : "fault", isCertain ? fault.times : 1,
                   faults.at(i), common::Counted(faults[i].seen, OperationName(fault.operation))});
  }
  const std::vector<Tally> replies = engine.ReplyTallies();
  for (std::size_t i = 0; i < scenario.replies.size(); ++i) {
    const ReplyRule& rule = scenario.replies[i];
    const bool isBounded = rule.at && rule.at->times != kForever;
    all.push_back({rule.origin, "reply", isBounded ? rule.at->times : 1, replies.at(i),
                   common::Counted(replies[i].seen, "request")});
  }
  return all;
}

std::string InstructionText(const Instruction& each) {
  const std::string times = each.tally.struck == 0 ? "did not happen"
                            : each.tally.struck < each.wanted
                                ? "happened " + std::to_string(each.tally.struck) + " of " +
                                      common::Counted(each.wanted, "time")
                                : "happened " + common::Counted(each.tally.struck, "time");
  return common::Printable(each.origin) + ": the " + each.kind + " " + times + " in " +
         each.counted;
}

}  // namespace

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
  throw common::InputError(common::Quoted(name) + " is not a client; known are " +
                           common::Joined(known) + common::NearestHint(name, known));
}

void AddReplyRule(ReplyRule rule, Scenario* scenario) {
  for (const ReplyRule& other : scenario->replies) {
    const bool overlap = rule.at && other.at ? rule.at->Overlap(*other.at) : !rule.at && !other.at;
    if (other.client != rule.client || other.command != rule.command || !overlap) continue;
    throw common::InputError(common::Printable(other.origin) + " tells " +
                             common::Printable(rule.client) + " already how to answer " +
                             (rule.command ? "this command" : "all other commands") +
                             (rule.at ? " at some of these times" : ""));
  }
  scenario->replies.push_back(std::move(rule));
}

void Apply(const Scenario& scenario, Engine* engine) {
  for (const ReplyRule& rule : scenario.replies) engine->AddReply(rule);
  for (const Fault& fault : scenario.faults) engine->AddFault(fault);
}

std::vector<std::string> Missed(const Scenario& scenario, const Engine& engine) {
  std::vector<std::string> lines;
  for (const Instruction& each : Instructions(scenario, engine)) {
    if (each.tally.struck < each.wanted) lines.push_back(InstructionText(each));
  }
  return lines;
}

std::vector<std::string> Met(const Scenario& scenario, const Engine& engine) {
  std::vector<std::string> lines;
  for (const Instruction& each : Instructions(scenario, engine)) {
    lines.push_back(InstructionText(each));
  }
  return lines;
}

}  // namespace zulisim
