#include "common/printable.h"

#include <cstdio>

namespace kaloctl {

std::string Printable(std::string_view text) {
  std::string printable;
  for (const char character : text) {
    if (character >= 0x20 && character < 0x7f) {
      printable += character;
    } else {
      char escape[8];
      std::snprintf(escape, sizeof(escape), "\\x%02x", static_cast<unsigned char>(character));
      printable += escape;
    }
  }
  return printable;
}

}  // namespace kaloctl
