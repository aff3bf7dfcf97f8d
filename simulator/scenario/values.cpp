#include "simulator/scenario/values.h"

#include <algorithm>
#include <cctype>
#include <limits>
#include <stdexcept>

#include "simulator/engine/fault.h"

namespace zulisim {
namespace {

constexpr std::uint64_t kMaxOccurrence = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t kLongestNumber = 12;
constexpr int kLastErrno = 133;

[[noreturn]] void Fail(const std::string& message) { throw std::invalid_argument(message); }

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// How many characters must be put in, left out, replaced or swapped with their neighbour to make
// one text of the other.
std::size_t Distance(const std::string& from, const std::string& to) {
  std::vector<std::vector<std::size_t>> least(from.size() + 1,
                                              std::vector<std::size_t>(to.size() + 1));
  for (std::size_t i = 0; i <= from.size(); ++i) {
    for (std::size_t j = 0; j <= to.size(); ++j) {
      least[i][j] = i + j;
      if (i == 0 || j == 0) continue;
      const std::size_t replaced = least[i - 1][j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1);
      least[i][j] = std::min({least[i - 1][j] + 1, least[i][j - 1] + 1, replaced});
      const bool swapped = i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1];
      if (swapped) least[i][j] = std::min(least[i][j], least[i - 2][j - 2] + 1);
    }
  }
  return least[from.size()][to.size()];
}

std::vector<std::string> ErrnoNames() {
  std::vector<std::string> names;
  for (int error = 1; error <= kLastErrno; ++error) names.push_back(ErrnoName(error));
  return names;
}

}  // namespace

std::string Quoted(const std::string& text) { return "'" + text + "'"; }

std::uint64_t ParseNumber(const std::string& text, std::uint64_t highest, const std::string& what) {
  const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  const std::string digits = hex ? text.substr(2) : text;
  const auto isDigit = [hex](unsigned char c) { return hex ? isxdigit(c) : isdigit(c); };
  const std::string expected =
      what + " is a number from 0 to " + std::to_string(highest) + ", not " + Quoted(text);
  if (digits.empty() || !std::all_of(digits.begin(), digits.end(), isDigit)) Fail(expected);
  try {
    const unsigned long long value = std::stoull(digits, nullptr, hex ? 16 : 10);
    if (value <= highest) return value;
  } catch (const std::out_of_range&) {
    // Said below.
  }
  Fail(expected);
}

std::uint32_t ParseStatus(const std::string& text) {
  constexpr std::uint64_t kLowest = std::uint64_t{1} << 31;
  const bool negative = !text.empty() && text[0] == '-';
  if (!negative) {
    return static_cast<std::uint32_t>(ParseNumber(text, 0xffffffff, "a status"));
  }
  return 0 -
         static_cast<std::uint32_t>(ParseNumber(text.substr(1), kLowest, "a status behind '-'"));
}

int ParseErrno(const std::string& text) {
  if (const auto error = ErrnoFromName(text)) return *error;
  const std::string hint = NearestHint(text, ErrnoNames());
  Fail(Quoted(text) + " is no errno" +
       (hint.empty() ? "; a name such as EIO or ENODEV is expected" : hint));
}

Operation ParseOperation(const std::string& text) {
  if (const auto operation = OperationFromName(text)) return *operation;
  Fail(Quoted(text) + " is no operation; open, ioctl, read, write or close is expected" +
       NearestHint(text, {"open", "ioctl", "read", "write", "close"}));
}

Bytes ParseHex(const std::string& text, const std::string& what) {
  Bytes bytes;
  const auto digitAt = [&text](std::size_t at) -> int {
    const char c = at < text.size() ? text[at] : '\0';
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
  };
  for (std::size_t i = 0; i < text.size();) {
    if (isspace(static_cast<unsigned char>(text[i])) != 0) {
      ++i;
      continue;
    }
    const int high = digitAt(i);
    const int low = digitAt(i + 1);
    if (high < 0 || low < 0) {
      Fail(what + " is an even number of hexadecimal digits, not " +
           Quoted(text.size() > 80 ? text.substr(0, 80) + "..." : text));
    }
    bytes.push_back(static_cast<std::uint8_t>(high << 4 | low));
    i += 2;
  }
  if (bytes.empty()) Fail(what + " is an even number of hexadecimal digits, not " + Quoted(text));
  if (bytes.size() > kLongestMessage) Fail(what + " is longer than any message can be");
  return bytes;
}

Guid ParseGuid(const std::string& text) {
  std::string digits = text;
  for (const char mark : {'{', '}', '-'}) {
    digits.erase(std::remove(digits.begin(), digits.end(), mark), digits.end());
  }
  const std::string expected =
      Quoted(text) + " is no GUID; '{FBF6FCF1-96CF-4E2E-A6A6-1BAB8CBE36B1}' is the form";
  Bytes bytes;
  try {
    bytes = ParseHex(digits, "a GUID");
  } catch (const std::invalid_argument&) {
    throw std::invalid_argument(expected);
  }
  Guid guid;
  if (bytes.size() != guid.size()) throw std::invalid_argument(expected);
  // As it lies in memory: the first three fields begin with their lowest byte.
  constexpr std::size_t kOrder[] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
  for (std::size_t i = 0; i < guid.size(); ++i) guid[i] = bytes[kOrder[i]];
  return guid;
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
  Fail(Quoted(text) + " is no duration up to a minute; '250us', '1.5ms' or '2s' is expected");
}

Occurrences ParseOccurrences(const std::string& text) {
  const std::size_t dash = text.find('-');
  Occurrences when;
  when.first = ParseNumber(text.substr(0, dash), kMaxOccurrence, "the occurrence");
  if (dash == std::string::npos) return when;
  if (dash + 1 == text.size()) {
    when.times = kForever;
    return when;
  }
  const std::uint64_t last =
      ParseNumber(text.substr(dash + 1), kMaxOccurrence, "the last occurrence");
  if (last < when.first) Fail("the range " + Quoted(text) + " ends before it begins");
  when.times = last - when.first + 1;
  return when;
}

std::string NearestHint(const std::string& text, const std::vector<std::string>& candidates) {
  if (text.empty() || text.size() > 40) return "";
  std::size_t least = std::max<std::size_t>(1, text.size() / 3) + 1;
  std::string nearest;
  for (const std::string& candidate : candidates) {
    const std::size_t distance = Distance(Lower(text), Lower(candidate));
    if (distance >= least) continue;
    least = distance;
    nearest = candidate;
  }
  return nearest.empty() ? "" : "; did you mean " + Quoted(nearest) + "?";
}

std::string Listed(const std::vector<std::string>& names) {
  std::string list;
  for (const std::string& name : names) list += (list.empty() ? "" : ", ") + name;
  return list;
}

}  // namespace zulisim
