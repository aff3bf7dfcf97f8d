#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "common/colours.h"
#include "common/file_follower.h"
#include "common/format.h"
#include "common/input.h"
#include "common/input_error.h"
#include "common/log_folder.h"
#include "common/log_splitter.h"
#include "common/number.h"
#include "common/text.h"
#include "tools/cli/commands.h"
#include "tools/cli/json.h"

namespace kaloctl {
namespace {

using common::LogRecord;

constexpr int kPollMilliseconds = 200;

bool Contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

bool TellsFailure(const LogRecord& record) {
  constexpr const char* kMarks[] = {"failed", "Exception", "Error", "errno", "errorno"};
  return std::any_of(std::begin(kMarks), std::end(kMarks),
                     [&record](const char* mark) { return Contains(record.text, mark); });
}

// Prints a record as one line: copies, prefix, function, tag, text.
void PrintLogRecord(std::ostream& out, const common::Colours& colours, const LogRecord& record,
                    std::size_t copies) {
  const std::string text = common::Printable(record.text);
  out << common::Format("{:>4}  ", copies > 1 ? common::Format("x{}", copies) : "");
  if (record.function.empty()) {
    out << colours.dim << "? " << text << colours.reset << '\n';
    return;
  }
  if (!record.prefix.empty()) out << record.prefix << "  ";
  const bool bad = TellsFailure(record);
  out << colours.dim << common::Format("{:<15}{:>5}  ", record.function, record.tag)
      << colours.reset << (bad ? colours.bad : "") << text << (bad ? colours.reset : "") << '\n';
}

// A record as one line of JSON.
void PrintLogJson(std::ostream& out, const LogRecord& record, std::size_t copies) {
  Json line = {{"copies", copies},    {"process", nullptr}, {"tick", nullptr},
               {"function", nullptr}, {"tag", nullptr},     {"text", record.text}};
  long long process = 0, tick = 0;
  if (std::sscanf(record.prefix.c_str(), "[%lld] %lld", &process, &tick) == 2) {
    line["process"] = process;
    line["tick"] = tick;
  }
  if (!record.function.empty()) {
    line["function"] = record.function;
    line["tag"] = common::ParseNumber(record.tag).value_or(0);
  }
  PrintJson(out, line, JsonLayout::kLine);
}

struct LogOptions {
  std::string path;
  bool follow = false;
  bool failures = false;
  bool json = false;
  std::vector<std::string> functions;
};

class LogView {
 public:
  explicit LogView(const LogOptions& options) : options_(options) {}

  void Feed(std::string_view text) { splitter_.Feed(text); }
  // What was fed ends with a whole message.
  void Finish() {
    splitter_.Finish();
    folder_.Finish();
    std::cout << std::flush;
  }

 private:
  void Show(const LogRecord& record, std::size_t copies) const {
    const std::vector<std::string>& functions = options_.functions;
    const bool named =
        std::find(functions.begin(), functions.end(), record.function) != functions.end();
    if ((!functions.empty() && !named) || (options_.failures && !TellsFailure(record))) return;
    options_.json ? PrintLogJson(std::cout, record, copies)
                  : PrintLogRecord(std::cout, colours_, record, copies);
  }

  const LogOptions& options_;
  const common::Colours colours_ = common::ColoursFor(stdout);
  common::LogFolder folder_{
      [this](const LogRecord& record, std::size_t copies) { Show(record, copies); }};
  common::LogSplitter splitter_{[this](LogRecord&& record) { folder_.Add(std::move(record)); }};
};

// A file that does not exist yet is waited for.
void RequireRegularFile(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 ||
      (S_ISREG(status.st_mode) && access(path.c_str(), R_OK) == 0))
    return;
  throw common::InputError(
      common::Format("cannot follow {}: {}", common::Quoted(path),
                     S_ISREG(status.st_mode) ? std::strerror(errno) : "not a regular file"));
}

// Waits a moment. False if standard output has failed, or its reader has gone.
bool WaitForMore() {
  struct pollfd output = {STDOUT_FILENO, 0, 0};
  return poll(&output, 1, kPollMilliseconds) <= 0 && std::cout;
}

// Runs until a signal ends it, or until the reader of the output has gone. The library writes each
// message at once, so that the last one is complete when nothing has come for a while.
int Follow(const LogOptions& options) {
  common::FileFollower file(options.path, common::FileFollower::From::kBeginning);
  LogView view(options);
  do {
    RequireRegularFile(options.path);
    const std::string text = file.Take();
    text.empty() ? view.Finish() : view.Feed(text);
  } while (WaitForMore());
  return kDone;
}

int ShowLog(const LogOptions& options) {
  if (options.follow) {
    if (options.path != "-") return Follow(options);
    throw common::UsageError("--follow requires the name of a file");
  }
  LogView view(options);
  common::ReadBlocks(options.path, [&](std::string_view block) { view.Feed(block); });
  view.Finish();
  return kDone;
}

}  // namespace

void DefineLog(common::Command* program) {
  auto options = std::make_shared<LogOptions>();
  common::Command* command =
      program->AddCommand("log", "Show a log of the library with one message a line");
  command
      ->AddFile("FILE", &options->path,
                "The log, usually /data/Marvoleth.log; - reads standard input")
      .Require();
  command->AddFlag("-f,--follow", &options->follow,
                   "Show also what is added to FILE, which may not exist yet, until a signal");
  command->AddFlag("--failures", &options->failures, "Show only messages that tell of a failure");
  command->AddList("--function", &options->functions, "NAME,...",
                   "Show only messages of these functions, such as KaloInit3,IoMessage");
  AddJsonFlag(command, &options->json);
  command->SetFooter(
      R"(The library's messages stand in its log mostly without line ends, and after n calls of
KaloInit3 each of them n times. Here each is shown once, with x and the number of copies in
front, then the process and the tick where the log has them, the function and the tag; counts
and addresses stand in a column. Text that belongs to no message is marked with '?'; bytes
that cannot be printed appear as \xNN. A log may be of any size.

Examples:
  kaloctl log /data/Marvoleth.log
  kaloctl log --follow --failures /data/Marvoleth.log
  zulisim run -- sh -c './driver; kaloctl log /data/Marvoleth.log'
)");
  command->SetAction([=] { return ShowLog(*options); });
}

}  // namespace kaloctl
