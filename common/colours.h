#pragma once

#include <cstdio>

namespace common {

// The escape sequences for one output stream; empty strings if it does not use colour.
struct Colours {
  const char* good = "";
  const char* bad = "";
  const char* warning = "";
  const char* dim = "";
  const char* bold = "";
  const char* reset = "";
};

// Returns the escape sequences if `stream` is a terminal, TERM is not "dumb", and NO_COLOR is empty
// or unset. Otherwise returns empty strings.
Colours ColoursFor(std::FILE* stream);

}  // namespace common
