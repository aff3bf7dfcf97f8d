#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "common/text.h"

namespace common {

// Reports wrong input from the user. The text names the input and the remedy.
class InputError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

// An error at a place in a file. Lines and columns count from 1.
struct Diagnostic {
  std::uint32_t line = 1;
  std::uint32_t column = 1;
  std::string message;
};

// "scenario.toml:12:3: unknown key 'stauts' in a reply; did you mean 'status'?"
inline std::string DiagnosticText(const std::string& file, const Diagnostic& diagnostic) {
  return Printable(file) + ":" + std::to_string(diagnostic.line) + ":" +
         std::to_string(diagnostic.column) + ": " + diagnostic.message;
}

}  // namespace common
