#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/input_error.h"
#include "simulator/scenario/toml_parser.h"

namespace zulisim {

// One table of a TOML file, which knows the keys that belong in it and reports what is wrong to a
// list of diagnostics: unknown keys at once, values of a wrong type or range as they are asked for.
class TomlSection {
 public:
  // `what` names the table in a text, as in "a reply".
  TomlSection(const toml::table& table, std::string what, std::vector<std::string> keys,
              std::vector<common::Diagnostic>* diagnostics);

  bool Has(const std::string& key) const { return table_.contains(key); }
  // Each gives nothing for a key that is missing, and for one that it has reported.
  std::optional<std::int64_t> Integer(const std::string& key, std::int64_t lowest,
                                      std::int64_t highest);
  std::optional<double> Real(const std::string& key);
  std::optional<bool> Flag(const std::string& key);
  std::optional<std::string> Text(const std::string& key);
  // The tables of [[key]].
  std::vector<const toml::table*> Tables(const std::string& key);
  const toml::node* Node(const std::string& key) const { return table_.get(key); }

  // Runs `action` on the text of `key`, if there is one; an InputError is reported there.
  void WithText(const std::string& key, const std::function<void(const std::string&)>& action);

  void Report(const std::string& key, const std::string& message);
  void ReportType(const std::string& key, const std::string& expected);
  std::uint32_t line() const { return table_.source().begin.line; }

 private:
  const toml::table& table_;
  const std::string what_;
  std::vector<common::Diagnostic>* diagnostics_;
};

}  // namespace zulisim
