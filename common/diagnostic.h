#pragma once

#include <cstdint>
#include <string>

namespace common {

// What is wrong at a place of a file; lines and columns count from 1.
struct Diagnostic {
  std::uint32_t line = 1;
  std::uint32_t column = 1;
  std::string message;
};

// "scenario.toml:12:3: unknown key 'stauts' in a reply; did you mean 'status'?"
inline std::string DiagnosticText(const std::string& file, const Diagnostic& diagnostic) {
  return file + ":" + std::to_string(diagnostic.line) + ":" + std::to_string(diagnostic.column) +
         ": " + diagnostic.message;
}

}  // namespace common
