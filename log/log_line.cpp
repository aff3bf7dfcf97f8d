#include "log/log_line.h"

#include <cstdio>

namespace logging {

LogLine::~LogLine() {
  const bool isLong = end_ == std::end(text_);
  if (!isLong) *end_ = '\0';
  Emit(level_, isLong ? longText_.c_str() : text_);
}

LogLine& LogLine::AppendLong(std::string_view text) {
  try {
    if (end_ != std::end(text_)) longText_.assign(text_, end_);
    end_ = std::end(text_);
    longText_.append(text);
  } catch (...) {
    // If memory is exhausted, the piece is missing: logging never fails its caller.
  }
  return *this;
}

LogLine& LogLine::operator<<(Address address) {
#ifdef _LIBCPP_VERSION
  char text[24];
  std::snprintf(text, sizeof text, "%p", address.value);  // as its streams do
  return *this << std::string_view(text);
#else
  if (address.value == nullptr) return *this << '0';
  return (*this << "0x").AppendNumber(reinterpret_cast<uintptr_t>(address.value), 16);
#endif
}

}  // namespace logging
