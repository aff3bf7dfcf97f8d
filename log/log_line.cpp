#include "log/log_line.h"

#include <cstring>

namespace logging {

LogLine::LogLine(int32_t level, std::string_view function, std::string_view tag) : level_(level) {
  *this << function << tag;
}

LogLine::~LogLine() {
  *end_ = '\0';
  Emit(level_, longText_.empty() ? text_ : longText_.c_str());
}

LogLine& LogLine::operator<<(std::string_view text) {
  if (text.size() <= static_cast<size_t>(limit_ - end_)) {
    std::memcpy(end_, text.data(), text.size());
    end_ += text.size();
    return *this;
  }
  try {
    if (longText_.empty()) longText_.assign(text_, end_);
    longText_.append(text);
    limit_ = end_;
  } catch (...) {
    // Out of memory: the piece is missing, and the code that logs goes on.
  }
  return *this;
}

LogLine& LogLine::operator<<(Address address) {
  if (address.value == nullptr) return *this << '0';
  return (*this << "0x").AppendNumber(reinterpret_cast<uintptr_t>(address.value), 16);
}

}  // namespace logging
