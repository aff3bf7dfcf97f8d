#include "simulator/scenario/scenario_options.h"

#include <utility>

#include "common/format.h"
#include "common/input_error.h"
#include "common/text.h"

namespace zulisim {
namespace {

constexpr const char* kClientForm = "CLIENT:max=BYTES,version=N";
constexpr const char* kReplyForm = "CLIENT:COMMAND=FIELD,...";

[[noreturn]] void Fail(const std::string& message) { throw common::InputError(message); }

void FailWith(const Setting*, const std::string& message) { Fail(message); }

// Like SplitOnce, but throws InputError if the separator is missing.
std::pair<std::string, std::string> Split(const std::string& text, char separator,
                                          const std::string& form) {
  const auto [first, second] = common::SplitOnce(text, {separator});
  if (!second) Fail(common::Format("'{}' is missing; the form is {}", separator, form));
  return {first, *second};
}

void AddClient(const std::string& text, Scenario* scenario) {
  const auto [name, fields] = Split(text, ':', kClientForm);
  ClientOf(scenario, name);  // throws for a new name, because a new client needs a GUID
  Instruction instruction{SettingsOf(fields, '='), "--client " + text};
  instruction.settings.push_back({"name", name});
  ReadClient(instruction, FailWith, scenario);
}

void AddReply(const std::string& text, Scenario* scenario) {
  const auto [target, fields] = Split(text, '=', kReplyForm);
  const auto [client, command] = Split(target, ':', kReplyForm);
  Instruction instruction{SettingsOf(fields, ':'), "--reply " + text};
  instruction.settings.push_back({"client", client});
  if (command != "*") instruction.settings.push_back({"command", command});
  ReadReply(instruction, FailWith, scenario);
}

// CLIENT, CLIENT:COMMAND, *:COMMAND or #CONNECTION
void AddScope(const std::string& scope, std::vector<Setting>* settings) {
  if (scope[0] == '#') return settings->push_back({"connection", scope.substr(1)});
  const auto [client, command] = common::SplitOnce(scope, ":");
  if (client != "*") settings->push_back({"client", client});
  if (command) settings->push_back({"command", command});
}

}  // namespace

const std::vector<InstructionOption>& InstructionOptions() {
  static const std::vector<InstructionOption> options = [] {
    const std::string replyHelp = "Answer a command (or '*') with ";
    std::vector<InstructionOption> all = {
        {"client", kClientForm, "Set what a client reports about itself", AddClient},
        {"reply", kReplyForm, replyHelp + common::Joined(ReplyFieldForms()), AddReply}};
    for (const FaultKind& kind : FaultKinds()) {
      all.push_back({kind.option, kind.Form(), kind.help,
                     [&kind](const std::string& value, Scenario* scenario) {
                       AddFault(kind, value, scenario);
                     }});
    }
    return all;
  }();
  return options;
}

void AddFault(const FaultKind& kind, const std::string& value, Scenario* scenario) {
  const auto [place, effect] = common::SplitOnce(value, "=,");
  const auto [occurrences, scope] = common::SplitOnce(place, "@");
  const auto [operation, when] = Split(occurrences, ':', kind.Form());
  if ((!effect && kind.value[0] == '=') || effect == "")
    Fail("the value is missing; the form is " + kind.Form());
  Instruction instruction{{{"operation", operation}, {"at", when}, {kind.key, effect}},
                          common::Format("--{} {}", kind.option, value)};
  if (scope) AddScope(*scope, &instruction.settings);
  ReadFault(instruction, FailWith, scenario);
}

}  // namespace zulisim
