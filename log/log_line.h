#pragma once

#include <charconv>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>

#include "log/delivery.h"
#include "log/logger.h"
#include "oscl/errno_keeper.h"

// The library's own log statements:
//
//   KALO_LOG(kTraceLevel) << "READ call is successful.";
//
// writes "<function>:<line>: READ call is successful." A statement below the threshold costs one
// comparison and does not evaluate its operands. It is one expression, so it is safe in an unbraced
// `if`. It does not change errno.

namespace logging {

constexpr int32_t kOrdinaryLevel = 0;
constexpr int32_t kTraceLevel = 100;

inline bool Wanted(int32_t level) { return level <= Threshold() && SinkRegistered(); }

// Prints lower-case hexadecimal digits without a prefix; a negative number as 32 bits.
struct Hex {
  template <typename Number>
  explicit Hex(Number number) : value(static_cast<uint32_t>(number)) {}

  const uint32_t value;
};

// Prints what the streams of the C++ standard library print. They differ only for null.
struct Address {
  const void* value;
};

// One message that begins with its function and tag. Its destructor delivers it. It prints what
// stream insertion would print, but into a buffer of its own, so only a text longer than the
// library's own needs an allocation. The functions are inline because the compiler then knows the
// length of most pieces.
class LogLine {
 public:
  // `tag` is the text ":<number>: " after the function.
  LogLine(int32_t level, std::string_view function, std::string_view tag) : level_(level) {
    *this << function << tag;
  }
  ~LogLine();
  LogLine(const LogLine&) = delete;
  LogLine& operator=(const LogLine&) = delete;

  LogLine& operator<<(std::string_view text) {
    if (text.size() >= static_cast<size_t>(std::end(text_) - end_)) return AppendLong(text);
    std::memcpy(end_, text.data(), text.size());
    end_ += text.size();
    return *this;
  }
  LogLine& operator<<(char character) { return *this << std::string_view(&character, 1); }
  LogLine& operator<<(int32_t number) { return AppendNumber(number, 10); }
  LogLine& operator<<(uint32_t number) { return AppendNumber(number, 10); }
  LogLine& operator<<(Hex number) { return AppendNumber(number.value, 16); }
  LogLine& operator<<(Address address);

 private:
  LogLine& AppendLong(std::string_view text);
  template <typename Number>
  LogLine& AppendNumber(Number number, int base) {
    char digits[24];
    char* const end = std::to_chars(digits, std::end(digits), number, base).ptr;
    return *this << std::string_view(digits, static_cast<size_t>(end - digits));
  }

  // The first member, so that it restores errno after the delivery.
  const oscl::ErrnoKeeper keeper_;
  const int32_t level_;
  char* end_ = text_;  // std::end(text_) once the text is in longText_
  char text_[256];
  std::string longText_;
};

// Gives both arms of a log statement the type void. Binds looser than <<.
struct Discard {
  void operator&(const LogLine&) const {}
};

}  // namespace logging

#define KALO_LOG_TEXT_OF(number) #number
#define KALO_LOG_FULL(level, function, tag) \
  !::logging::Wanted(level)                 \
      ? static_cast<void>(0)                \
      : ::logging::Discard() & ::logging::LogLine(level, function, ":" KALO_LOG_TEXT_OF(tag) ": ")

// The tag is the line of the statement.
#define KALO_LOG(level) KALO_LOG_FULL(level, __func__, __LINE__)
// The tag is a fixed number.
#define KALO_LOG_TAGGED(level, tag) KALO_LOG_FULL(level, __func__, tag)
// For another function.
#define KALO_LOG_AS(level, function) KALO_LOG_FULL(level, function, __LINE__)
