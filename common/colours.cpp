#include "common/colours.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace common {

Colours ColoursFor(std::FILE* stream) {
  const char* refused = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  const bool dumb = terminal != nullptr && std::strcmp(terminal, "dumb") == 0;
  if ((refused != nullptr && *refused != '\0') || dumb || isatty(fileno(stream)) == 0) return {};
  return {"\033[32m", "\033[31m", "\033[33m", "\033[2m", "\033[1m", "\033[0m"};
}

}  // namespace common
