#pragma once

#include <cstdio>

namespace common {

// The escape sequences of an output; all empty where colour is not wanted.
struct Colours {
  const char* good = "";
  const char* bad = "";
  const char* warning = "";
  const char* dim = "";
  const char* bold = "";
  const char* reset = "";
};

// Colour only on a terminal that can show it, and never while NO_COLOR holds anything.
Colours ColoursFor(std::FILE* stream);

}  // namespace common
