#pragma once

#include <string>

#include <fmt/core.h>

namespace common {

// Does the work of Format. Do not call it directly.
std::string FormatArguments(fmt::string_view format, fmt::format_args arguments);

// Returns `format` with each "{}" replaced by the next argument: Format("{} of {}", 1, "many"). The
// documentation of fmtlib describes other fields, such as "{:08x}". Throws fmt::format_error if a
// field does not fit its argument.
template <typename... T>
std::string Format(fmt::format_string<T...> format, T&&... arguments) {
  return FormatArguments(format, fmt::make_format_args(arguments...));
}

}  // namespace common
