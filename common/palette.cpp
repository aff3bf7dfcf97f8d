#include "common/palette.h"

#include <cstdlib>

#include <unistd.h>

namespace kaloctl {

Palette PaletteFor(std::FILE* stream) {
  const char* refused = std::getenv("NO_COLOR");
  if ((refused != nullptr && *refused != '\0') || isatty(fileno(stream)) == 0) return {};
  return {"\033[32m", "\033[31m", "\033[2m", "\033[1m", "\033[0m"};
}

}  // namespace kaloctl
