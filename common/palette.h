#pragma once

#include <cstdio>

namespace kaloctl {

// The escape sequences of an output; all empty where colour is not wanted.
struct Palette {
  const char* good = "";
  const char* bad = "";
  const char* dim = "";
  const char* bold = "";
  const char* reset = "";
};

// Colour only on a terminal, and never while NO_COLOR holds anything.
Palette PaletteFor(std::FILE* stream);

}  // namespace kaloctl
