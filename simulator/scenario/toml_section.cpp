#include "simulator/scenario/toml_section.h"

#include <algorithm>
#include <utility>

#include "common/input_error.h"
#include "common/text.h"

namespace zulisim {
namespace {

const char* TypeName(toml::node_type type) {
  switch (type) {
    case toml::node_type::table:
      return "a table";
    case toml::node_type::array:
      return "an array";
    case toml::node_type::string:
      return "a text";
    case toml::node_type::integer:
      return "an integer";
    case toml::node_type::floating_point:
      return "a number with a point";
    case toml::node_type::boolean:
      return "true or false";
    default:
      return "a date or time";
  }
}

common::Diagnostic At(const toml::source_region& place, std::string message) {
  return {place.begin.line, place.begin.column, std::move(message)};
}

}  // namespace

TomlSection::TomlSection(const toml::table& table, std::string what, std::vector<std::string> keys,
                         std::vector<common::Diagnostic>* diagnostics)
    : table_(table), what_(std::move(what)), diagnostics_(diagnostics) {
  for (const auto& [key, node] : table_) {
    const std::string name(key.str());
    if (std::find(keys.begin(), keys.end(), name) != keys.end()) continue;
    const std::string hint = common::NearestHint(name, keys);
    diagnostics_->push_back(
        At(key.source(), "unknown key " + common::Quoted(name) + " in " + what_ +
                             (hint.empty() ? "; known are " + common::Joined(keys) : hint)));
  }
}

void TomlSection::Report(const std::string& key, const std::string& message) {
  const toml::node* node = table_.get(key);
  diagnostics_->push_back(At(node != nullptr ? node->source() : table_.source(), message));
}

void TomlSection::ReportType(const std::string& key, const std::string& expected) {
  Report(key, common::Quoted(key) + " of " + what_ + " is " + expected + ", not " +
                  TypeName(table_.get(key)->type()));
}

std::optional<std::int64_t> TomlSection::Integer(const std::string& key, std::int64_t lowest,
                                                 std::int64_t highest) {
  const toml::node* node = table_.get(key);
  if (node == nullptr) return std::nullopt;
  const std::string range =
      "an integer from " + std::to_string(lowest) + " to " + std::to_string(highest);
  if (!node->is_integer()) {
    ReportType(key, range);
    return std::nullopt;
  }
  const std::int64_t value = **node->as_integer();
  if (value >= lowest && value <= highest) return value;
  Report(key,
         common::Quoted(key) + " of " + what_ + " is " + range + ", not " + std::to_string(value));
  return std::nullopt;
}

std::optional<double> TomlSection::Real(const std::string& key) {
  const toml::node* node = table_.get(key);
  if (node == nullptr) return std::nullopt;
  if (node->is_number()) return node->value<double>();
  ReportType(key, "a number");
  return std::nullopt;
}

std::optional<bool> TomlSection::Flag(const std::string& key) {
  const toml::node* node = table_.get(key);
  if (node == nullptr) return std::nullopt;
  if (node->is_boolean()) return **node->as_boolean();
  ReportType(key, "true or false");
  return std::nullopt;
}

std::optional<std::string> TomlSection::Text(const std::string& key) {
  const toml::node* node = table_.get(key);
  if (node == nullptr) return std::nullopt;
  if (node->is_string()) return **node->as_string();
  ReportType(key, "a text");
  return std::nullopt;
}

std::vector<const toml::table*> TomlSection::Tables(const std::string& key) {
  std::vector<const toml::table*> tables;
  const toml::node* node = table_.get(key);
  if (node == nullptr) return tables;
  const toml::array* array = node->as_array();
  if (array == nullptr || !array->is_array_of_tables()) {
    Report(key, "each " + key + " is a table of its own: write [[" + key + "]]");
    return tables;
  }
  for (const toml::node& element : *array) tables.push_back(element.as_table());
  return tables;
}

void TomlSection::WithText(const std::string& key,
                           const std::function<void(const std::string&)>& action) {
  const auto text = Text(key);
  if (!text) return;
  try {
    action(*text);
  } catch (const common::InputError& error) {
    Report(key, error.what());
  }
}

}  // namespace zulisim
