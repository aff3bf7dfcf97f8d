#include "simulator/scenario/scenario_file.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <map>
#include <utility>

#include "common/input.h"
#include "common/number.h"
#include "common/text.h"
#include "simulator/scenario/toml_section.h"
#include "simulator/scenario/values.h"

namespace zulisim {
namespace {

constexpr std::int64_t kMinStatus = std::numeric_limits<std::int32_t>::min();

// Far apart, so that faults of one file do not strike together.
constexpr std::uint64_t kSeedStep = 0xd1342543de82ef95;

class Reader {
 public:
  Reader(std::string path, Scenario* scenario, std::vector<common::Diagnostic>* diagnostics)
      : path_(std::move(path)), scenario_(scenario), diagnostics_(diagnostics) {}

  void Read(const toml::table& root) {
    TomlSection section(root, "a scenario", {"about", "seed", "client", "reply", "fault"},
                        diagnostics_);
    section.Text("about");
    seed_ = static_cast<std::uint64_t>(
        section.Integer("seed", 0, std::numeric_limits<std::int64_t>::max()).value_or(0));
    for (const toml::table* table : section.Tables("client")) ReadClient(*table);
    for (const toml::table* table : section.Tables("reply")) ReadReply(*table);
    for (const toml::table* table : section.Tables("fault")) ReadFault(*table);
  }

 private:
  struct PlacedFault {
    Fault fault;
    std::uint32_t line;
  };

  void ReadClient(const toml::table& table) {
    TomlSection section(table, "a client", {"name", "guid", "max", "version"}, diagnostics_);
    const auto name = section.Text("name");
    if (!section.Has("name")) section.Report("", "a client needs a 'name'");
    if (!name) return;
    if (name->empty()) return section.Report("name", "a client's name is not empty");
    const auto [place, isNew] = clientLines_.emplace(*name, section.line());
    if (!isNew) {
      return section.Report("name", "the client " + common::Quoted(*name) +
                                        " is described in line " + std::to_string(place->second) +
                                        " already");
    }
    ++scenario_->describedClients;
    Client* client = FindClient(scenario_, *name);
    if (client == nullptr) {
      if (!section.Has("guid")) {
        return section.Report("name", "the client " + common::Quoted(*name) +
                                          " is new and needs a 'guid'" +
                                          common::NearestHint(*name, ClientNames(*scenario_)));
      }
      scenario_->clients.emplace_back();
      client = &scenario_->clients.back();
      client->name = *name;
    }
    section.WithText("guid", [&](const std::string& text) { SetGuid(ParseGuid(text), client); });
    if (const auto max = section.Integer("max", 0, kLongestMessage)) {
      client->maxMessageLength = static_cast<std::uint32_t>(*max);
    }
    if (const auto version = section.Integer("version", 0, 255)) {
      client->protocolVersion = static_cast<std::uint8_t>(*version);
    }
  }

  void SetGuid(const Guid& guid, Client* client) {
    for (const Client& other : scenario_->clients) {
      if (&other == client || other.guid != guid) continue;
      throw common::InputError("the GUID is that of the client " + common::Quoted(other.name));
    }
    client->guid = guid;
  }

  void ReadReply(const toml::table& table) {
    TomlSection section(table, "a reply",
                        {"client", "command", "at", "status", "body", "body-file", "private",
                         "private-file", "unusual", "latency", "hold", "silent"},
                        diagnostics_);
    const std::size_t before = diagnostics_->size();
    ReplyRule rule;
    rule.origin = Origin(section);
    if (!section.Has("client")) section.Report("", "a reply needs a 'client'");
    section.WithText(
        "client", [&](const std::string& name) { rule.client = ClientOf(scenario_, name).name; });
    if (const auto command = section.Integer("command", 0, common::kMaxWord)) {
      rule.command = static_cast<std::uint32_t>(*command);
    }
    if (section.Has("at")) rule.at = ReadOccurrences(&section);
    // A status is signed to the library, and written with its highest bit in most documents.
    rule.status = static_cast<std::uint32_t>(
        section.Integer("status", kMinStatus, common::kMaxWord).value_or(0));
    rule.body = Content(&section, "body");
    rule.privateData = Content(&section, "private");
    section.WithText("latency",
                     [&rule](const std::string& text) { rule.latency = ParseDuration(text); });
    rule.unusual = section.Flag("unusual").value_or(false);
    rule.held = section.Flag("hold").value_or(false);
    rule.silent = section.Flag("silent").value_or(false);
    if (rule.silent) {
      for (const char* key :
           {"status", "body", "body-file", "private", "private-file", "latency", "hold"}) {
        if (section.Has(key)) section.Report(key, "a silent client sends nothing");
      }
    }
    if (diagnostics_->size() != before) return;
    if (const auto error = ReplyError(rule)) {
      return section.Report(section.Has("private") ? "private" : "private-file", *error);
    }
    try {
      AddReplyRule(std::move(rule), scenario_);
    } catch (const common::InputError& error) {
      section.Report(section.Has("at") ? "at" : "command", error.what());
    }
  }

  // "loss.toml:12"
  std::string Origin(const TomlSection& section) const {
    return path_ + ":" + std::to_string(section.line());
  }

  // The bytes of `key`, or of the file that "KEY-file" names.
  std::optional<Bytes> Content(TomlSection* section, const std::string& key) {
    std::optional<Bytes> bytes;
    const std::string fileKey = key + "-file";
    section->WithText(key, [&](const std::string& text) { bytes = ParseBytes("a " + key, text); });
    section->WithText(fileKey, [&](const std::string& name) {
      const std::string path = std::filesystem::path(path_).parent_path() / name;
      const std::string content = common::ReadInput(path, kLongestMessage);
      scenario_->files.push_back(path);
      bytes = Bytes(content.begin(), content.end());
    });
    if (section->Has(key) && section->Has(fileKey)) {
      section->Report(fileKey, "either " + common::Quoted(key) + " or " + common::Quoted(fileKey) +
                                   ", not both");
    }
    return bytes;
  }

  void ReadFault(const toml::table& table) {
    TomlSection section(table, "a fault",
                        {"operation", "at", "client", "command", "connection", "probability",
                         "seed", "errno", "short", "lose"},
                        diagnostics_);
    const std::size_t before = diagnostics_->size();
    Fault fault;
    if (!section.Has("operation")) section.Report("", "a fault needs an 'operation'");
    section.WithText("operation",
                     [&](const std::string& text) { fault.operation = ParseOperation(text); });
    ReadWhen(&section, &fault);
    ReadEffect(&section, &fault);
    fault.origin = Origin(section);
    if (diagnostics_->size() != before) return;
    if (const auto error = FaultError(fault)) return section.Report(KeyOfError(fault), *error);
    for (const PlacedFault& other : faults_) {
      if (Hides(other.fault, fault)) {
        section.Report("at", "the fault of line " + std::to_string(other.line) +
                                 " strikes the same " + OperationName(fault.operation) +
                                 "s first; let each of them strike once");
        break;
      }
    }
    faults_.push_back({fault, section.line()});
    scenario_->faults.push_back(fault);
  }

  // What FaultError complains of.
  static const char* KeyOfError(const Fault& fault) {
    if (!fault.scope.IsAll()) return "operation";
    return fault.probability > 0 && fault.probability <= 1 ? "short" : "probability";
  }

  // Of the key "at"; all without it.
  static Occurrences ReadOccurrences(TomlSection* section) {
    Occurrences when{1, kForever};
    const toml::node* at = section->Node("at");
    if (at != nullptr && at->is_string()) {
      section->WithText("at", [&](const std::string& text) { when = ParseOccurrences(text); });
    } else if (at != nullptr && at->is_integer()) {
      when = {static_cast<std::uint64_t>(section->Integer("at", 1, common::kMaxWord).value_or(1)),
              1};
    } else if (at != nullptr) {
      section->ReportType("at", "an integer, or a text such as '3-5' or '3-'");
    }
    return when;
  }

  void ReadWhen(TomlSection* section, Fault* fault) {
    if (!section->Has("at") && !section->Has("probability")) {
      section->Report("", "a fault needs an 'at', as in 3 or '3-5' or '3-', or a 'probability'");
    }
    section->WithText("client", [&](const std::string& name) {
      fault->scope.client = ClientOf(scenario_, name).name;
    });
    if (const auto command = section->Integer("command", 0, common::kMaxWord)) {
      fault->scope.command = static_cast<std::uint32_t>(*command);
    }
    fault->scope.connection =
        static_cast<std::uint64_t>(section->Integer("connection", 1, common::kMaxWord).value_or(0));
    const Occurrences when = ReadOccurrences(section);
    fault->first = when.first;
    fault->times = when.times;
    fault->probability = section->Real("probability").value_or(1);
    const auto seed = section->Integer("seed", 0, std::numeric_limits<std::int64_t>::max());
    fault->seed = seed ? static_cast<std::uint64_t>(*seed) : seed_ + ++seeds_ * kSeedStep;
  }

  void ReadEffect(TomlSection* section, Fault* fault) {
    constexpr const char* kNeeded = "a fault needs one of 'errno', 'short' and 'lose'";
    std::vector<const char*> effects;
    for (const char* key : {"errno", "short", "lose"}) {
      if (section->Has(key)) effects.push_back(key);
    }
    if (effects.empty()) return section->Report("", kNeeded);
    if (effects.size() > 1) {
      for (const char* key : effects) section->Report(key, std::string(kNeeded) + ", not several");
      return;
    }
    section->WithText(
        "errno", [&](const std::string& text) { fault->effect = ErrnoFault{ParseErrno(text)}; });
    if (const auto count = section->Integer("short", 0, common::kMaxWord)) {
      fault->effect = ShortCount{static_cast<std::size_t>(*count)};
    }
    const toml::node* lose = section->Node("lose");
    if (lose == nullptr) return;
    if (lose->is_table()) {
      ReadLoss(*lose->as_table(), fault);
    } else if (lose->is_boolean() && **lose->as_boolean()) {
      fault->effect = DeviceLoss{};
    } else {
      section->Report("lose", "'lose' is true, or a table such as { opens = 3, errno = \"EIO\" }");
    }
  }

  void ReadLoss(const toml::table& table, Fault* fault) {
    TomlSection section(table, "a loss", {"opens", "errno", "drop-replies"}, diagnostics_);
    DeviceLoss loss;
    if (const auto opens = section.Integer("opens", 0, common::kMaxWord)) {
      loss.failingOpens = static_cast<std::uint64_t>(*opens);
    }
    section.WithText("errno",
                     [&loss](const std::string& text) { loss.openError = ParseErrno(text); });
    loss.keepReplies = !section.Flag("drop-replies").value_or(false);
    fault->effect = loss;
  }

  // Whether `earlier` leaves some of the operations of `later` to it that it names for certain, or
  // none of those that it may strike.
  static bool Hides(const Fault& earlier, const Fault& later) {
    const bool sameCount = earlier.operation == later.operation && earlier.scope == later.scope;
    if (!sameCount || earlier.probability < 1) return false;
    if (later.probability < 1) {
      return earlier.first <= later.first && later.When().Last() <= earlier.When().Last();
    }
    return earlier.When().Overlap(later.When());
  }

  const std::string path_;
  Scenario* scenario_;
  std::vector<common::Diagnostic>* diagnostics_;
  std::uint64_t seed_ = 0;
  std::uint64_t seeds_ = 0;
  std::map<std::string, std::uint32_t> clientLines_;
  std::vector<PlacedFault> faults_;
};

}  // namespace

std::vector<common::Diagnostic> ReadScenario(const std::string& text, const std::string& path,
                                             Scenario* scenario) {
  std::vector<common::Diagnostic> diagnostics;
  Scenario changed = *scenario;
  try {
    const toml::table root = toml::parse(text);
    Reader(path, &changed, &diagnostics).Read(root);
  } catch (const toml::parse_error& error) {
    const auto place = error.source().begin;
    return {
        {place.line, place.column, "not valid TOML: " + common::Printable(error.description())}};
  }
  std::stable_sort(
      diagnostics.begin(), diagnostics.end(),
      [](const common::Diagnostic& a, const common::Diagnostic& b) { return a.line < b.line; });
  if (diagnostics.empty()) *scenario = std::move(changed);
  return diagnostics;
}

std::vector<common::Diagnostic> ReadScenarioFile(const std::string& path, Scenario* scenario) {
  return ReadScenario(common::ReadInput(path), path, scenario);
}

void AddScenarioFile(const std::string& path, Scenario* scenario) {
  std::vector<std::string> mistakes;
  for (const common::Diagnostic& each : ReadScenarioFile(path, scenario)) {
    mistakes.push_back(common::DiagnosticText(path, each));
  }
  if (!mistakes.empty()) throw common::InputError(common::Joined(mistakes, "\n"));
  scenario->files.push_back(path);
}

}  // namespace zulisim
