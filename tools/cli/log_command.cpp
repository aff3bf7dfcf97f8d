#include <cstdio>
#include <iomanip>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "common/colours.h"
#include "common/input.h"
#include "common/text.h"
#include "tools/cli/commands.h"
#include "tools/log/log_folder.h"
#include "tools/log/log_splitter.h"

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

// Prints a record as one line: copies, prefix, function, tag, text. A count or an address at the
// end of the text stands in a column of its own. Bytes that are not printable appear as \xNN.
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

int ShowLog(const std::string& path) {
  const common::Colours colours = common::ColoursFor(stdout);
  LogFolder folder([&](const LogRecord& record, std::size_t copies) {
    PrintLogRecord(std::cout, colours, record, copies);
  });
  LogSplitter splitter([&](LogRecord&& record) { folder.Add(std::move(record)); });
  common::ReadBlocks(path, [&](std::string_view block) { splitter.Feed(block); });
  splitter.Finish();
  folder.Finish();
  return kDone;
}

}  // namespace

void AddLogCommand(CLI::App& app, int& exitStatus) {
  auto path = std::make_shared<std::string>();
  CLI::App* command =
      app.add_subcommand("log", "Show a log of the library with one message a line");
  command->add_option("FILE", *path, "The log, usually /data/Marvoleth.log; - reads standard input")
      ->required();
  command->footer(
      R"(The library's messages stand in its log mostly without line ends, and after n calls of
KaloInit3 each of them n times. Here each is shown once, with x and the number of copies in
front, then the process and the tick where the log has them, the function and the tag; counts
and addresses stand in a column. Text that belongs to no message is marked with '?'; bytes
that cannot be printed appear as \xNN. A log may be of any size.

Examples:
  kaloctl log /data/Marvoleth.log
  zulisim run -- sh -c './driver; kaloctl log /data/Marvoleth.log'
)");
  command->callback([path, &exitStatus] { exitStatus = ShowLog(*path); });
}

}  // namespace kaloctl
