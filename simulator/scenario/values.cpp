#include "simulator/scenario/values.h"

#include <algorithm>

#include "common/input_error.h"
#include "common/number.h"
#include "common/text.h"

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
  const bool isRange = dash != std::string::npos;
  const bool isOpen = isRange && dash + 1 == text.size();
  const auto first = common::ParseNumber(text.substr(0, dash));
  const auto last = isRange && !isOpen ? common::ParseNumber(text.substr(dash + 1)) : first;
  if (!first || !last) {
    throw common::InputError(
        common::Quoted(text) +
        " does not say which; '3', '3-5' or '3-' is expected, with numbers up to " +
        std::to_string(common::kMaxWord));
  }
  if (*first == 0) throw common::InputError(common::Quoted(text) + ": all is counted from 1");
  if (*last < *first) {
    throw common::InputError("the range " + common::Quoted(text) + " ends before it begins");
  }
  return {*first, isOpen ? kForever : *last - *first + 1};
}

}  // namespace zulisim
