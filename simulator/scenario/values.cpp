#include "simulator/scenario/values.h"

#include <cstdlib>
#include <limits>
#include <utility>

#include "common/format.h"
#include "common/input_error.h"
#include "common/number.h"
#include "common/text.h"

namespace zulisim {

std::uint32_t ParseStatus(const std::string& text) {
  constexpr std::uint64_t kLowest = std::uint64_t{1} << 31;
  const bool isNegative = !text.empty() && text[0] == '-';
  const auto number =
      isNegative ? common::ParseNumber(text.substr(1), kLowest) : common::ParseNumber(text);
  if (!number) {
    throw common::InputError(common::Format("{} is not a status; expected a number from -{} to {}",
                                            common::Quoted(text), kLowest, common::kMaxWord));
  }
  return static_cast<std::uint32_t>(isNegative ? 0 - *number : *number);
}

std::chrono::microseconds ParseDuration(const std::string& text) {
  const std::pair<std::string, double> units[] = {{"us", 1}, {"ms", 1e3}, {"s", 1e6}};
  char* unit = nullptr;
  const double number = std::strtod(text.c_str(), &unit);
  const auto length = static_cast<std::size_t>(unit - text.c_str());
  // strtod also accepts exponents, signs and white space.
  const bool isPlain = length > 0 && text.find_first_not_of("0123456789.") == length;
  for (const auto& [name, microseconds] : units) {
    if (!isPlain || unit != name || number * microseconds > 60e6) continue;
    return std::chrono::microseconds(static_cast<std::int64_t>(number * microseconds));
  }
  throw common::InputError(
      common::Quoted(text) +
      " is not a duration; expected a number with a unit, up to a minute, such as '1.5ms' or '2s'");
}

std::uint32_t ParseCommand(const std::string& text) {
  return static_cast<std::uint32_t>(common::RequireNumber("a command", text));
}

std::uint64_t ParseConnection(const std::string& text) {
  const std::uint64_t number = common::RequireNumber("a connection", text);
  if (number == 0) throw common::InputError("connections count from 1");
  return number;
}

double ParseProbability(const std::string& text) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (!text.empty() && *end == '\0' && value > 0 && value <= 1) return value;
  throw common::InputError(common::Quoted(text) +
                           " is not a probability; expected a number above 0 and at most 1");
}

std::uint64_t ParseSeed(const std::string& text) {
  return common::RequireNumber("a seed", text, std::numeric_limits<std::int64_t>::max());
}

Occurrences ParseOccurrences(const std::string& text) {
  const auto [from, to] = common::SplitOnce(text, "-");
  const auto first = common::ParseNumber(from);
  const auto last = to.value_or("").empty() ? first : common::ParseNumber(*to);
  if (!first || !last) {
    throw common::InputError(common::Format(
        "{} is not a valid position; expected '3', '3-5' or '3-', with numbers up to {}",
        common::Quoted(text), common::kMaxWord));
  }
  if (*first == 0 || *last < *first) {
    throw common::InputError(
        common::Quoted(text) + " is not a valid position; " +
        (*first == 0 ? "positions count from 1" : "the range ends before it begins"));
  }
  return {*first, to == "" ? kForever : *last - *first + 1};
}

}  // namespace zulisim
