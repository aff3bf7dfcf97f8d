#include "tools/log/log_view.h"

#include <algorithm>
#include <iomanip>
#include <string>
#include <string_view>

#include "common/text.h"

namespace kaloctl {
namespace {

constexpr int kFunctionWidth = 15;
constexpr int kTagWidth = 5;
constexpr int kLabelWidth = 36;
constexpr int kValueWidth = 18;

bool Contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

bool IsHexadecimal(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

// Where the count or address at the end of the text begins; npos when it ends in words.
std::size_t ValueBegin(std::string_view text) {
  const std::size_t blank = text.rfind(' ');
  if (blank == std::string_view::npos) return blank;
  const std::string_view label = text.substr(0, blank + 1);
  const std::string_view value = text.substr(blank + 1);
  const bool address = value.substr(0, 2) == "0x" && IsHexadecimal(value.substr(2));
  const bool number = IsHexadecimal(value) && (Contains(label, "Ref Cnt ") ||
                                               Contains(label, "Handle ") || Contains(label, ": "));
  return address || number ? blank + 1 : std::string_view::npos;
}

}  // namespace

void PrintLogRecord(std::ostream& out, const common::Colours& colours, const LogRecord& record,
                    std::size_t copies) {
  const std::string count = copies > 1 ? "x" + std::to_string(copies) : "";
  out << std::setw(4) << count << "  ";
  if (record.function.empty()) {
    out << colours.dim << "? " << common::Printable(record.text) << colours.reset << '\n';
    return;
  }
  if (!record.prefix.empty()) out << record.prefix << "  ";
  out << colours.dim << std::left << std::setw(kFunctionWidth) << record.function << std::right
      << std::setw(kTagWidth) << record.tag << colours.reset << "  ";
  const std::size_t value = ValueBegin(record.text);
  if (value == std::string_view::npos) {
    const bool bad = Contains(record.text, "failed") || Contains(record.text, "Exception") ||
                     Contains(record.text, "Error");
    out << (bad ? colours.bad : "") << common::Printable(record.text) << (bad ? colours.reset : "");
  } else {
    out << std::left << std::setw(kLabelWidth) << common::Printable(record.text.substr(0, value))
        << std::right << std::setw(kValueWidth) << record.text.substr(value);
  }
  out << '\n';
}

}  // namespace kaloctl
