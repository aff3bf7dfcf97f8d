#include <cstdio>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "common/input.h"
#include "tools/call/script_runner.h"
#include "tools/call/state_view.h"
#include "tools/cli/commands.h"
#include "tools/cli/json.h"

namespace kaloctl {
namespace {

struct ScriptOptions {
  std::string script;
  RunOptions run;
  bool noLog = false;
  bool json = false;
};

int RunScript(const ScriptOptions& options, bool showState) {
  std::vector<ScriptStep> steps;
  if (!options.script.empty()) {
    steps = ParseScript(common::ReadInput(options.script), common::InputName(options.script));
  }
  std::ostream& out = options.json ? std::cerr : std::cout;
  ScriptRunner runner(out, common::ColoursFor(options.json ? stderr : stdout), options.run);
  const bool good = runner.Run(steps);
  if (options.json) {
    PrintJson(std::cout, StateJson(runner.destroyed()));
  } else if (showState) {
    PrintState(std::cout, runner.destroyed());
  }
  return good ? kDone : kFailed;
}

constexpr char kDestroyedHelp[] = "Send on a session that the script has destroyed (it may crash)";

}  // namespace

void AddRunCommand(CLI::App& app, int& exitStatus) {
  auto options = std::make_shared<ScriptOptions>();
  CLI::App* command =
      app.add_subcommand("run", "Make the calls of a script and show what each of them did");
  command->add_option("SCRIPT", options->script, "The script; - reads standard input")->required();
  command->add_flag("--trace", options->run.trace,
                    "Show the library's trace lines too (its log file receives them as well)");
  command->add_flag("--no-log", options->noLog, "Show no log lines");
  command->add_flag("--use-destroyed", options->run.useDestroyed, kDestroyedHelp);
  command->footer(ScriptHelp() + R"(
Each call is shown with its status, what it brought back, the counts of handles that are
out, and the log lines it caused. The exit status is 1 when a call failed or was not made,
2 when the script is wrong.)");
  command->callback([options, &exitStatus] {
    options->run.showLog = !options->noLog;
    exitStatus = RunScript(*options, false);
  });
}

void AddStateCommand(CLI::App& app, int& exitStatus) {
  auto options = std::make_shared<ScriptOptions>();
  options->run.brief = true;
  CLI::App* command = app.add_subcommand(
      "state", "Show the library's global state, after the calls of a script if there is one");
  command->add_option("SCRIPT", options->script,
                      "A script as 'kaloctl run' takes; - reads standard input");
  command->add_flag("--use-destroyed", options->run.useDestroyed, kDestroyedHelp);
  command->footer(
      R"(The state is that of this program's copy of the library, so without SCRIPT it is the state
after loading. 'kaloctl run --help' tells how a script is written. Addresses of sessions that
have been closed stay in the state and are marked. With --json, the calls of SCRIPT are shown on
standard error.)");
  AddJsonFlag(*command, options->json);
  command->callback([options, &exitStatus] { exitStatus = RunScript(*options, true); });
}

}  // namespace kaloctl
