#pragma once

#include <cstdint>
#include <iostream>
#include <vector>

#include <nlohmann/json.hpp>

#include "common/command_line.h"
#include "common/hex.h"
#include "tools/call/status_text.h"

namespace kaloctl {

// The output of --json. docs/json.md describes it.
using Json = nlohmann::ordered_json;

inline void AddJsonFlag(common::Command* command, bool* json) {
  command->AddFlag("--json", json, "Print JSON (see docs/json.md)");
}

// Prints a value on standard output, on one line if `indent` is -1. Replaces bytes that are not
// valid UTF-8 with U+FFFD.
inline void PrintJson(const Json& json, int indent = 2) {
  std::cout << json.dump(indent, ' ', false, Json::error_handler_t::replace) << '\n';
}

// Returns bytes as "0102ff", or null if there are none.
inline Json BytesJson(const std::vector<std::uint8_t>& bytes) {
  return bytes.empty() ? Json() : Json(common::HexDigits(bytes));
}

// Describes a failure of the function `call`.
inline Json FailureJson(const char* call, const Failure& failure) {
  const std::string name = StatusText(failure.status);  // the number follows in parentheses
  return {{"call", call},
          {"status", failure.status},
          {"statusName", name.substr(0, name.find(' '))},
          {"text", failure.text},
          {"source", failure.source},
          {"code", failure.code},
          {"cause", failure.cause.empty() ? Json() : Json(failure.cause)},
          {"try", failure.advice}};
}

}  // namespace kaloctl
