#include <cstdio>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "common/colours.h"
#include "common/input.h"
#include "tools/cli/commands.h"
#include "tools/cli/exit_status.h"
#include "tools/log/log_folder.h"
#include "tools/log/log_splitter.h"
#include "tools/log/log_view.h"

namespace kaloctl {
namespace {

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
      "The library's messages stand in its log mostly without line ends, and after n calls of\n"
      "KaloInit3 each of them n times. Here each is shown once, with x and the number of copies "
      "in\n"
      "front, then the process and the tick where the log has them, the function and the tag; "
      "counts\n"
      "and addresses stand in a column. Text that belongs to no message is marked with '?'; bytes\n"
      "that cannot be printed appear as \\xNN. A log may be of any size.\n"
      "\n"
      "Examples:\n"
      "  kaloctl log /data/Marvoleth.log\n"
      "  zulisim run -- sh -c './driver; kaloctl log /data/Marvoleth.log'\n");
  command->callback([path, &exitStatus] { exitStatus = ShowLog(*path); });
}

}  // namespace kaloctl
