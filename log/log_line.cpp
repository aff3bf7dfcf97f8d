#include "log/log_line.h"

#include <cstring>

namespace logging {

LogLine::LogLine(int32_t level, const char* function, int tag) : level_(level) {
  *this << function << ':' << tag << ": ";
}

LogLine::~LogLine() {
  text_[length_] = '\0';
  Emit(level_, longText_.empty() ? text_ : longText_.c_str());
}

LogLine& LogLine::operator<<(Address address) {
  if (address.value == nullptr) return *this << '0';
  return (*this << "0x").AppendNumber(reinterpret_cast<uintptr_t>(address.value), 16);
}

LogLine& LogLine::Append(std::string_view piece) {
  if (longText_.empty() && piece.size() < sizeof text_ - length_) {
    std::memcpy(text_ + length_, piece.data(), piece.size());
    length_ += piece.size();
    return *this;
  }
  try {
    if (longText_.empty()) longText_.assign(text_, length_);
    longText_.append(piece);
  } catch (...) {
    // Out of memory: the piece is missing, and the code that logs goes on.
  }
  return *this;
}

}  // namespace logging
