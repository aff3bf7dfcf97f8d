#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "common/command_line.h"

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

inline common::Option AddJsonFlag(common::Command* command, bool* json) {
  return command->AddFlag("--json", json, "Print JSON, as docs/json.md describes it");
}

// What a call that returned `status` left behind; `logLines` are those that it caused.
Json FailureJson(const char* call, std::uint32_t status, const std::vector<std::string>& logLines);

// "0102ff"; null where there are none.
Json BytesJson(const std::vector<std::uint8_t>& bytes);

}  // namespace kaloctl
