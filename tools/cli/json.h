#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "common/command_line.h"

namespace kaloctl {

// The output of --json. docs/json.md describes it.
using Json = nlohmann::ordered_json;

enum class JsonLayout { kIndented, kLine };

// Replaces bytes that are not valid UTF-8 with U+FFFD.
inline void PrintJson(std::ostream& out, const Json& json,
                      JsonLayout layout = JsonLayout::kIndented) {
  out << json.dump(layout == JsonLayout::kLine ? -1 : 2, ' ', false, Json::error_handler_t::replace)
      << '\n';
}

inline void AddJsonFlag(common::Command* command, bool* json) {
  command->AddFlag("--json", json, "Print JSON (see docs/json.md)");
}

// Describes a failed call. `logLines` are the log lines of the call.
Json FailureJson(const char* call, std::uint32_t status, const std::vector<std::string>& logLines);

// Returns bytes as "0102ff", or null if there are none.
Json BytesJson(const std::vector<std::uint8_t>& bytes);

}  // namespace kaloctl
