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

bool ReportsFailure(const LogRecord& record) {
  constexpr const char* kMarks[] = {"failed", "Exception", "Error", "errno", "errorno"};
  return std::any_of(std::begin(kMarks), std::end(kMarks), [&record](const char* mark) {
    return record.text.find(mark) != std::string::npos;
  });
}

// Prints a record on one line: the number of copies, the prefix, the function, the tag and the
// text.
void PrintLogRecord(std::ostream& out, const common::Colours& colours, const LogRecord& record,
                    std::size_t copies) {
  const std::string text = common::Printable(record.text);
  out << common::Format("{:>4}  ", copies > 1 ? common::Format("x{}", copies) : "");
  if (record.function.empty()) {
    out << colours.dim << "? " << text << colours.reset << '\n';
    return;
  }
  if (!record.prefix.empty()) out << record.prefix << "  ";
  const bool bad = ReportsFailure(record);
  out << colours.dim << common::Format("{:<15}{:>5}  ", record.function, record.tag)
      << colours.reset << (bad ? colours.bad : "") << text << (bad ? colours.reset : "") << '\n';
}

// Prints a record as one line of JSON.
void PrintLogJson(const LogRecord& record, std::size_t copies) {
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
  PrintJson(line, -1);
}

struct LogOptions {
  std::string path;
  bool follow = false;
  bool failures = false;
  bool json = false;
};

class LogView {
 public:
  explicit LogView(const LogOptions& options) : options_(options) {}

  void Feed(std::string_view text) { splitter_.Feed(text); }
  // Call this only when the last message is complete.
  void Finish() {
    splitter_.Finish();
    folder_.Finish();
    std::cout << std::flush;
  }

 private:
  void Show(const LogRecord& record, std::size_t copies) const {
    if (options_.failures && !ReportsFailure(record)) return;
    options_.json ? PrintLogJson(record, copies)
                  : PrintLogRecord(std::cout, colours_, record, copies);
  }

  const LogOptions& options_;
  const common::Colours colours_ = common::ColoursFor(stdout);
  common::LogFolder folder_{
      [this](const LogRecord& record, std::size_t copies) { Show(record, copies); }};
  common::LogSplitter splitter_{[this](LogRecord&& record) { folder_.Add(std::move(record)); }};
};

// Throws if the path names anything but a readable regular file. The file need not exist yet.
void RequireRegularFile(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 ||
      (S_ISREG(status.st_mode) && access(path.c_str(), R_OK) == 0))
    return;
  throw common::InputError(
      common::Format("cannot follow {}: {}", common::Quoted(path),
                     S_ISREG(status.st_mode) ? std::strerror(errno) : "not a regular file"));
}

// Waits for kPollMilliseconds. Returns false if standard output has failed or its reader has gone.
bool WaitForMore() {
  struct pollfd output = {STDOUT_FILENO, 0, 0};
  return poll(&output, 1, kPollMilliseconds) <= 0 && std::cout;
}

// Runs until a signal arrives or the reader of the output has gone. The library writes each message
// in one call, so the last message is complete if no text has arrived since the last poll.
int Follow(const LogOptions& options) {
  common::FileFollower file(options.path);
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
  common::Command* command = program->AddCommand(
      "log", "Show a log of the library, one message per line",
      R"(The library mostly writes messages without line ends, and each KaloInit3 adds one more copy of
every message. This command prints each message once: the number of copies (x3), process and
tick if the log has them, function, tag, text. '?' marks text without a function. Bytes that
are not printable appear as \xNN.

Examples:
  kaloctl log /data/Marvoleth.log
  kaloctl log --follow --failures /data/Marvoleth.log
  zulisim run -- sh -c './driver; kaloctl log /data/Marvoleth.log'

Exit status: 0 done, 2 wrong usage or a file that cannot be read.)");
  command->AddFile("FILE", &options->path,
                   "The log, usually /data/Marvoleth.log (- for standard input)");
  command->Require({"FILE"});
  command->AddFlag("-f,--follow", &options->follow,
                   "Wait for FILE and for new messages, until a signal");
  command->AddFlag("--failures", &options->failures, "Show only messages that report a failure");
  AddJsonFlag(command, &options->json);
  command->SetAction([=] { return ShowLog(*options); });
}

}  // namespace kaloctl
