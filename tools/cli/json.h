#pragma once

#include <ostream>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

namespace kaloctl {

// What --json prints; docs/json.md describes the shape of each command.
using Json = nlohmann::ordered_json;

enum class JsonLayout { kIndented, kLine };

// Bytes that are not UTF-8 become U+FFFD.
inline void PrintJson(std::ostream& out, const Json& json,
                      JsonLayout layout = JsonLayout::kIndented) {
  out << json.dump(layout == JsonLayout::kLine ? -1 : 2, ' ', false, Json::error_handler_t::replace)
      << '\n';
}

inline CLI::Option* AddJsonFlag(CLI::App& command, bool& json) {
  return command.add_flag("--json", json, "Print JSON, as docs/json.md describes it");
}

}  // namespace kaloctl
