#include "log/log_line.h"

namespace logging {

LogLine::~LogLine() {
  *end_ = '\0';
  Emit(level_, text_);
}

LogLine& LogLine::operator<<(Address address) {
  if (address.value == nullptr) return *this << '0';
  return (*this << "0x").AppendNumber(reinterpret_cast<uintptr_t>(address.value), 16);
}

}  // namespace logging
