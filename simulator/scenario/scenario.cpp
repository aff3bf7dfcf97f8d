#include "simulator/scenario/scenario.h"

#include <strings.h>

#include <algorithm>
#include <utility>

#include "common/format.h"
#include "common/input_error.h"
#include "common/text.h"

namespace zulisim {
namespace {

struct Instruction {
  std::string origin;
  std::uint64_t wanted = 1;  // how often it must happen
  Tally tally;
  std::string counted;  // "12 reads"
};

std::vector<Instruction> Instructions(const Scenario& scenario, const Engine& engine) {
  std::vector<Instruction> all;
  const std::vector<Tally> faults = engine.FaultTallies();
  for (std::size_t i = 0; i < scenario.faults.size(); ++i) {
    const Fault& fault = scenario.faults[i];
    const bool isCertain = fault.probability >= 1 && fault.times != kForever;
    all.push_back({fault.origin, isCertain ? fault.times : 1, faults.at(i),
                   common::Counted(faults[i].seen, OperationName(fault.operation))});
  }
  const std::vector<Tally> replies = engine.ReplyTallies();
  for (std::size_t i = 0; i < scenario.replies.size(); ++i) {
    const ReplyRule& rule = scenario.replies[i];
    const bool isBounded = rule.at && rule.at->times != kForever;
    all.push_back({rule.origin, isBounded ? rule.at->times : 1, replies.at(i),
                   common::Counted(replies[i].seen, "request")});
  }
  return all;
}

std::string InstructionText(const Instruction& each) {
  const std::uint64_t struck = each.tally.struck;
  const bool isShort = struck > 0 && struck < each.wanted;
  const std::string times = struck == 0 ? "never happened"
                            : isShort
                                ? common::Format("happened {} of {} times", struck, each.wanted)
                                : "happened " + common::Counted(struck, "time");
  return common::Format("{}: {} in {}", common::Printable(each.origin), times, each.counted);
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
  throw common::InputError(common::Format("unknown client {}; expected {}{}", common::Quoted(name),
                                          common::Joined(known), common::NearestHint(name, known)));
}

void Apply(const Scenario& scenario, Engine* engine) {
  for (const ReplyRule& rule : scenario.replies) engine->AddReply(rule);
  for (const Fault& fault : scenario.faults) engine->AddFault(fault);
}

std::vector<std::string> TallyLines(const Scenario& scenario, const Engine& engine,
                                    bool onlyMissed) {
  std::vector<std::string> lines;
  for (const Instruction& each : Instructions(scenario, engine)) {
    if (each.tally.struck < each.wanted || !onlyMissed) lines.push_back(InstructionText(each));
  }
  return lines;
}

}  // namespace zulisim
