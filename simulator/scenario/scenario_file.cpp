#include "simulator/scenario/scenario_file.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "common/format.h"
#include "common/text.h"
#include "simulator/scenario/instruction.h"
#include "simulator/scenario/toml_parser.h"
#include "simulator/scenario/values.h"

namespace zulisim {
namespace {

const std::vector<std::string>& RootKeys() {
  static const std::vector<std::string> keys = {"about", "seed", "client", "reply", "fault"};
  return keys;
}

// Returns the value as text, in the form that an option uses. Returns nothing for a type that no
// option has.
std::optional<std::string> ValueText(const toml::node& node) {
  if (const auto* text = node.as_string()) return **text;
  if (const auto* number = node.as_integer()) return std::to_string(**number);
  if (const auto* real = node.as_floating_point()) return common::Format("{}", **real);
  if (!node.is_table()) return std::nullopt;
  std::vector<std::string> fields;
  for (const auto& [key, value] : *node.as_table()) {
    const auto* flag = value.as_boolean();
    const auto text = ValueText(value);
    if (flag == nullptr && !text) return std::nullopt;
    if (flag != nullptr && !**flag) continue;
    fields.push_back(std::string(key.str()) + (text ? "=" + *text : ""));
  }
  return common::Joined(fields, ",");
}

class Reader {
 public:
  Reader(std::string path, Scenario* scenario, std::vector<common::Diagnostic>* diagnostics)
      : path_(std::move(path)), scenario_(scenario), diagnostics_(diagnostics) {}

  void Read(const toml::table& root) {
    for (const auto& [key, node] : root) {
      const std::string name(key.str());
      const auto& known = RootKeys();
      if (name == "seed") ReadSeed(node);
      if (std::find(known.begin(), known.end(), name) != known.end()) continue;
      const std::string hint = common::NearestHint(name, known);
      Report(key.source(),
             common::Format("unknown key {} in a scenario{}", common::Quoted(name),
                            hint.empty() ? "; expected " + common::Joined(known) : hint));
    }
    // Clients come first because replies and faults refer to them.
    ReadTables(root, "client", ReadClient);
    ReadTables(root, "reply", ReadReply);
    ReadTables(root, "fault", ReadFault);
  }

 private:
  void Report(const toml::source_region& source, const std::string& message) {
    diagnostics_->push_back({source.begin.line, source.begin.column, message});
  }

  void ReadSeed(const toml::node& node) {
    try {
      seed_ = ParseSeed(ValueText(node).value_or(""));
    } catch (const common::InputError& error) {
      Report(node.source(), error.what());
    }
  }

  void ReadTables(const toml::table& root, const char* key, InstructionReader read) {
    const toml::node* node = root.get(key);
    if (node == nullptr) return;
    if (!node->is_array_of_tables()) {
      return Report(node->source(), common::Format("write [[{}]] before each {}", key, key));
    }
    for (const toml::node& each : *node->as_array()) {
      const toml::table& table = *each.as_table();
      const auto report = [&](const Setting* setting, const std::string& message) {
        if (setting == nullptr) return Report(table.source(), message);
        diagnostics_->push_back({setting->line, setting->column, message});
      };
      read(InstructionOf(table), report, scenario_);
      if (read == ReadClient) ++scenario_->describedClients;
    }
  }

  Instruction InstructionOf(const toml::table& table) {
    Instruction instruction;
    instruction.origin = common::Format("{}:{}", path_, table.source().begin.line);
    instruction.folder = std::filesystem::path(path_).parent_path();
    instruction.seed = seed_;
    for (const auto& [key, node] : table) {
      const auto* flag = node.as_boolean();
      const auto value = ValueText(node);
      if (flag == nullptr && !value) Report(node.source(), "expected a text, a number or true");
      if (flag != nullptr && !**flag) continue;
      const auto& place = node.source().begin;
      instruction.settings.push_back({std::string(key.str()), value, place.line, place.column});
    }
    return instruction;
  }

  const std::string path_;
  Scenario* scenario_;
  std::vector<common::Diagnostic>* diagnostics_;
  std::uint64_t seed_ = 0;
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

void AddScenario(const std::string& text, const std::string& path, Scenario* scenario) {
  std::vector<std::string> mistakes;
  for (const common::Diagnostic& each : ReadScenario(text, path, scenario)) {
    mistakes.push_back(common::DiagnosticText(path, each));
  }
  if (!mistakes.empty()) throw common::InputError(common::Joined(mistakes, "\n"));
  scenario->files.push_back(path);
}

}  // namespace zulisim
