#include "simulator/scenario/values.h"

#include <algorithm>

#include "common/input_error.h"
#include "common/number.h"
#include "common/text.h"
#include "simulator/engine/fault.h"

namespace zulisim {
namespace {

constexpr std::size_t kLongestNumber = 12;

}  // namespace

std::uint32_t ParseStatus(const std::string& text) {
  constexpr std::uint64_t kLowest = std::uint64_t{1} << 31;
  const bool negative = !text.empty() && text[0] == '-';
  if (!negative) return static_cast<std::uint32_t>(common::RequireNumber("a status", text));
  return 0 - static_cast<std::uint32_t>(
                 common::RequireNumber("a status after '-'", text.substr(1), kLowest));
}

std::chrono::microseconds ParseDuration(const std::string& text) {
  const struct {
    const char* name;
    double microseconds;
  } units[] = {{"us", 1}, {"ms", 1e3}, {"s", 1e6}};
  const std::size_t end = text.find_first_not_of("0123456789.");
  const std::string number = text.substr(0, end);
  const bool plain = !number.empty() && number.size() <= kLongestNumber &&
                     std::count(number.begin(), number.end(), '.') <= 1 && number != ".";
  for (const auto& unit : units) {
    if (!plain || end == std::string::npos || text.substr(end) != unit.name) continue;
    const double value = std::stod(number) * unit.microseconds;
    if (value > 60e6) break;
    return std::chrono::microseconds(static_cast<std::int64_t>(value));
  }
  throw common::InputError(
      common::Quoted(text) +
      " is not a duration of up to a minute; '250us', '1.5ms' or '2s' is expected");
}

Occurrences ParseOccurrences(const std::string& text) {
  const std::size_t dash = text.find('-');
  Occurrences when;
  when.first = common::RequireNumber("the occurrence", text.substr(0, dash));
  if (dash == std::string::npos) return when;
  if (dash + 1 == text.size()) {
    when.times = kForever;
    return when;
  }
  const std::uint64_t last = common::RequireNumber("the last occurrence", text.substr(dash + 1));
  if (last < when.first) {
    throw common::InputError("the range " + common::Quoted(text) + " ends before it begins");
  }
  when.times = last - when.first + 1;
  return when;
}

}  // namespace zulisim
