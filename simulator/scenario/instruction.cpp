#include "simulator/scenario/instruction.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "common/format.h"
#include "common/input.h"
#include "common/input_error.h"
#include "common/number.h"
#include "common/text.h"
#include "simulator/scenario/values.h"

namespace zulisim {
namespace {

using common::Format;
using common::Quoted;
using Value = const std::string&;

// Keeps the seeds of one file's faults far apart, so that they do not happen together.
constexpr std::uint64_t kSeedStep = 0xd1342543de82ef95;

// --- The tables. Add a row for a new field or a new kind of fault. ---

// A named setting of a target and the function that sets it, which throws InputError.
template <typename Target>
struct Field {
  std::string name;
  std::string form;  // form of the value, in brackets if it is optional; empty for a flag
  std::function<void(Value value, Target* target)> set;
};
template <typename Target>
using Fields = std::vector<Field<Target>>;

// Returns a setter that stores the result of `parse` in a member.
template <typename Target, typename Member, typename Parser>
std::function<void(Value, Target*)> Set(Member Target::*member, Parser parse) {
  return [=](Value value, Target* target) { target->*member = parse(value); };
}

// Returns a setter for bytes that either of two fields can set.
template <typename Parser>
std::function<void(Value, ReplyRule*)> SetOnce(std::optional<Bytes> ReplyRule::*member,
                                               Parser parse) {
  return [=](Value value, ReplyRule* rule) {
    if (rule->*member)
      throw common::InputError("the bytes are set twice; give either the bytes or a file");
    rule->*member = parse(value);
  };
}

bool True(Value) { return true; }
Bytes ParseBody(Value value) { return ParseBytes("the body", value); }
Bytes ParsePrivateData(Value value) { return ParseBytes("the private data", value); }

std::uint32_t ParseLength(Value value) {
  return static_cast<std::uint32_t>(
      common::RequireNumber("the maximum message length", value, kLongestMessage));
}

std::uint8_t ParseVersion(Value value) {
  return static_cast<std::uint8_t>(common::RequireNumber("the protocol version", value, 255));
}

Fields<Client> ClientFields(const Scenario* scenario) {
  const auto setGuid = [=](Value value, Client* client) {
    const Guid guid = ParseGuid(value);
    for (const Client& other : scenario->clients) {
      if (&other == client || other.guid != guid) continue;
      throw common::InputError("the client " + Quoted(other.name) + " already has this GUID");
    }
    client->guid = guid;
  };
  return {{"name", "NAME", [](Value, Client*) {}},
          {"guid", "GUID", setGuid},
          {"max", "BYTES", Set(&Client::maxMessageLength, ParseLength)},
          {"version", "N", Set(&Client::protocolVersion, ParseVersion)}};
}

Fields<ReplyRule> ReplyFields(const std::string& folder, Scenario* scenario) {
  const auto content = [=](Value name) {
    const std::string path = std::filesystem::path(folder) / name;
    const std::string text = common::ReadInput(path, kLongestMessage);
    scenario->files.push_back(path);
    return Bytes(text.begin(), text.end());
  };
  const auto client = [=](Value name) { return ClientOf(scenario, name).name; };
  return {{"client", "NAME", Set(&ReplyRule::client, client)},
          {"command", "N", Set(&ReplyRule::command, ParseCommand)},
          {"at", "WHEN", Set(&ReplyRule::at, ParseOccurrences)},
          {"status", "N", Set(&ReplyRule::status, ParseStatus)},
          {"body", "HEX", SetOnce(&ReplyRule::body, ParseBody)},
          {"body-file", "FILE", SetOnce(&ReplyRule::body, content)},
          {"private", "HEX", SetOnce(&ReplyRule::privateData, ParsePrivateData)},
          {"private-file", "FILE", SetOnce(&ReplyRule::privateData, content)},
          {"unusual", "", Set(&ReplyRule::unusual, True)},
          {"latency", "TIME", Set(&ReplyRule::latency, ParseDuration)},
          {"hold", "", Set(&ReplyRule::held, True)},
          {"silent", "", Set(&ReplyRule::silent, True)}};
}

std::uint64_t ParseOpens(Value value) {
  return value == "all" ? kForever : common::RequireNumber("the number of failing opens", value);
}

Fields<DeviceLoss> LossFields() {
  return {{"opens", "N", Set(&DeviceLoss::failingOpens, ParseOpens)},
          {"errno", "ERRNO", Set(&DeviceLoss::openError, ParseErrno)},
          {"drop-replies", "", Set(&DeviceLoss::dropReplies, True)}};
}

FaultEffect ParseErrnoFault(Value value) { return ErrnoFault{ParseErrno(value)}; }

FaultEffect ParseShortCount(Value value) {
  if (value == "half") return ShortCount{0, true};
  return ShortCount{common::RequireNumber("a byte count", value)};
}

FaultEffect ParseDeviceLoss(Value value) {
  return value.empty() ? DeviceLoss{} : ParseLoss(value, {});
}

FaultEffect ParseRefusal(Value value) {
  const std::uint32_t status = value.empty() ? kRefusedStatus : ParseStatus(value);
  if (IsNegative(status)) return ReplyFault{status};
  throw common::InputError(
      Format("{} is not negative; a refusal needs a status such as 0x80000001", Quoted(value)));
}

FaultEffect ParseNoReply(Value) { return ReplyFault{}; }

Fields<Fault> FaultFields(Scenario* scenario) {
  const auto client = [=](Value name) { return ClientOf(scenario, name).name; };
  const auto inScope = [](auto set) {
    return [=](Value value, Fault* fault) { set(value, &fault->scope); };
  };
  Fields<Fault> fields = {
      {"operation", "NAME", Set(&Fault::operation, ParseOperation)},
      {"at", "WHEN", Set(&Fault::when, ParseOccurrences)},
      {"client", "NAME", inScope(Set(&FaultScope::client, client))},
      {"command", "N", inScope(Set(&FaultScope::command, ParseCommand))},
      {"connection", "N", inScope(Set(&FaultScope::connection, ParseConnection))},
      {"probability", "NUMBER", Set(&Fault::probability, ParseProbability)},
      {"seed", "N", Set(&Fault::seed, ParseSeed)}};
  for (const FaultKind& kind : FaultKinds()) {
    fields.push_back({kind.key, kind.value, Set(&Fault::effect, kind.parse)});
  }
  return fields;
}

// --- The parser. ---

// Returns the first setting that has one of the names, or null.
const Setting* Find(const Instruction& instruction, const std::vector<std::string>& names) {
  const auto& settings = instruction.settings;
  const auto found = std::find_if(settings.begin(), settings.end(), [&names](const Setting& each) {
    return std::find(names.begin(), names.end(), each.name) != names.end();
  });
  return found == settings.end() ? nullptr : &*found;
}

template <typename Target>
void SetField(const Setting& setting, const std::string& what, const Fields<Target>& fields,
              Target* target) {
  std::vector<std::string> known;
  for (const auto& field : fields) {
    known.push_back(field.name);
    if (field.name != setting.name) continue;
    if (setting.value ? field.form.empty() : !field.form.empty() && field.form[0] != '[') {
      throw common::InputError(Format("{} of {} takes {} value", Quoted(field.name), what,
                                      field.form.empty() ? "no" : "a"));
    }
    return field.set(setting.value.value_or(""), target);
  }
  const std::string hint = common::NearestHint(setting.name, known);
  throw common::InputError(Format("unknown field {} in {}{}", Quoted(setting.name), what,
                                  hint.empty() ? "; expected " + common::Joined(known) : hint));
}

// Returns true if there was no mistake.
template <typename Target>
bool SetFields(const Instruction& instruction, const std::string& what,
               const Fields<Target>& fields, const MistakeSink& report, Target* target) {
  bool isGood = true;
  for (const Setting& setting : instruction.settings) {
    try {
      SetField(setting, what, fields, target);
    } catch (const common::InputError& error) {
      isGood = false;
      report(&setting, error.what());
    }
  }
  return isGood;
}

// Returns true if some requests match both rules with the same precedence.
bool Overlap(const ReplyRule& one, const ReplyRule& other) {
  return one.client == other.client && one.command == other.command &&
         (one.at && other.at ? one.at->Overlap(*other.at) : !one.at && !other.at);
}

// Returns the client with that name. Adds it if the name is new and has a GUID, otherwise reports a
// mistake and returns null.
Client* DescribedClient(const Instruction& instruction, const MistakeSink& report,
                        Scenario* scenario) {
  const Setting* setting = Find(instruction, {"name"});
  const std::string name = setting == nullptr ? "" : setting->value.value_or("");
  Client* client = FindClient(scenario, name);
  if (client != nullptr) return client;
  if (name.empty()) {
    report(setting, "a client needs a 'name'");
  } else if (Find(instruction, {"guid"}) == nullptr) {
    report(setting, Format("the client {} is new and needs a 'guid'{}", Quoted(name),
                           common::NearestHint(name, ClientNames(*scenario))));
  } else {
    scenario->clients.emplace_back().name = name;
    client = &scenario->clients.back();
  }
  return client;
}

}  // namespace

const std::vector<FaultKind>& FaultKinds() {
  static const std::vector<FaultKind> kinds = {
      {"fault", "errno", "OPERATION", "=ERRNO", "Make an operation fail", ParseErrnoFault},
      {"short", "short", "read|write", "=BYTES",
       "Limit a read or write to so many bytes, or to 'half' of them", ParseShortCount},
      {"lose", "lose", "OPERATION", "[,opens=N][,errno=ERRNO][,drop-replies]",
       "Lose the device at an operation, and let the next N opens fail, or 'all' opens",
       ParseDeviceLoss},
      {"refuse", "refuse", "write", "[=STATUS]",
       "Answer a request with a negative status and private data", ParseRefusal},
      {"no-reply", "no-reply", "write", "", "Never answer a request", ParseNoReply},
  };
  return kinds;
}

std::vector<std::string> ReplyFieldForms() {
  std::vector<std::string> forms;
  for (const auto& field : ReplyFields("", nullptr)) {
    if (field.name == "client" || field.name == "command") continue;
    forms.push_back(field.form.empty() ? field.name : field.name + ":" + field.form);
  }
  return forms;
}

std::vector<Setting> SettingsOf(const std::string& text, char separator) {
  std::vector<Setting> settings;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(',', begin), text.size());
    const auto [name, value] = common::SplitOnce(text.substr(begin, end - begin), {separator});
    settings.push_back({name, value});
    begin = end + 1;
  }
  return settings;
}

DeviceLoss ParseLoss(const std::string& fields, DeviceLoss loss) {
  for (const Setting& each : SettingsOf(fields, '=')) SetField(each, "a loss", LossFields(), &loss);
  return loss;
}

void ReadClient(const Instruction& instruction, const MistakeSink& report, Scenario* scenario) {
  Client unknown;
  Client* const client = DescribedClient(instruction, report, scenario);
  SetFields(instruction, "a client", ClientFields(scenario), report,
            client == nullptr ? &unknown : client);
}

void ReadReply(const Instruction& instruction, const MistakeSink& report, Scenario* scenario) {
  ReplyRule rule;
  rule.origin = instruction.origin;
  const auto fields = ReplyFields(instruction.folder, scenario);
  const bool isGood = SetFields(instruction, "a reply", fields, report, &rule);
  if (Find(instruction, {"client"}) == nullptr) return report(nullptr, "a reply needs a 'client'");
  if (!isGood) return;
  if (const auto error = ReplyError(rule)) {
    return report(Find(instruction, {"silent", "private", "private-file"}), *error);
  }
  for (const ReplyRule& other : scenario->replies) {
    if (!Overlap(rule, other)) continue;
    const std::string command = rule.command ? "this command" : "all other commands";
    return report(Find(instruction, {"at", "command"}),
                  Format("'{}' already sets {}'s reply to {}", common::Printable(other.origin),
                         common::Printable(rule.client), command));
  }
  scenario->replies.push_back(std::move(rule));
}

void ReadFault(const Instruction& instruction, const MistakeSink& report, Scenario* scenario) {
  Fault fault;
  fault.origin = instruction.origin;
  fault.when.times = kForever;
  fault.seed = instruction.seed + (scenario->faults.size() + 1) * kSeedStep;
  const bool isGood = SetFields(instruction, "a fault", FaultFields(scenario), report, &fault);
  std::vector<std::string> kinds;
  for (const FaultKind& kind : FaultKinds()) kinds.push_back(kind.key);
  const auto& settings = instruction.settings;
  const auto effects = std::count_if(settings.begin(), settings.end(), [&](const Setting& each) {
    return std::find(kinds.begin(), kinds.end(), each.name) != kinds.end();
  });
  if (Find(instruction, {"operation"}) == nullptr) {
    report(nullptr, "a fault needs an 'operation'");
  } else if (Find(instruction, {"at", "probability"}) == nullptr) {
    report(nullptr, "a fault needs an 'at', such as 3, '3-5' or '3-', or a 'probability'");
  } else if (effects != 1) {
    report(Find(instruction, kinds), "a fault needs exactly one of " + common::Joined(kinds));
  } else if (isGood) {
    if (const auto error = FaultError(fault)) {
      return report(Find(instruction, {"operation"}), *error);
    }
    scenario->faults.push_back(std::move(fault));
  }
}

}  // namespace zulisim
