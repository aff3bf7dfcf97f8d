#pragma once

#include <cstdio>

namespace common {

// The escape sequences of an output. They are empty if it shows no colours.
struct Colours {
  const char* good = "";
  const char* bad = "";
  const char* warning = "";
  const char* dim = "";
  const char* bold = "";
  const char* reset = "";
};

// Returns sequences if `stream` is a terminal, TERM is not "dumb", and NO_COLOR is empty.
Colours ColoursFor(std::FILE* stream);

}  // namespace common
