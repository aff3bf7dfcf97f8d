// The only source file that compiles fmtlib's formatting code, so the programs need not link the
// library.
#define FMT_HEADER_ONLY
#include <fmt/format.h>

#include "common/format.h"

namespace common {

std::string FormatArguments(fmt::string_view format, fmt::format_args arguments) {
  return fmt::vformat(format, arguments);
}

}  // namespace common
