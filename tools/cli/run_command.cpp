#include <cstdio>
#include <iostream>
#include <memory>

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
  bool state = false;
  bool json = false;
};

int RunScript(const ScriptOptions& options) {
  std::vector<ScriptStep> steps;
  if (!options.script.empty()) {
    steps = ParseScript(common::ReadInput(options.script), common::InputName(options.script));
  }
  std::ostream& out = options.json ? std::cerr : std::cout;
  ScriptRunner runner(out, common::ColoursFor(options.json ? stderr : stdout), options.run);
  const bool good = runner.Run(steps);
  if (options.json) {
    PrintJson(std::cout, StateJson(runner.destroyed()));
  } else if (options.state) {
    std::cout << StateText(runner.destroyed());
  }
  return good ? kDone : kFailed;
}

}  // namespace

void DefineRun(common::Command* program) {
  const auto options = std::make_shared<ScriptOptions>();
  common::Command* command =
      program->AddCommand("run", "Make the calls of a script and show what each of them did");
  command->AddFile("SCRIPT", &options->script, "Read the calls from SCRIPT; - is standard input");
  command->AddFlag("--trace", &options->run.trace,
                   "Show the library's trace lines too, which its log file then also receives");
  command->AddFlag("--no-log", &options->noLog, "Show no log lines");
  command->AddFlag("--use-destroyed", &options->run.useDestroyed,
                   "Send on a session that the script has destroyed; this may crash");
  command->AddFlag("--state", &options->state,
                   "Show the library's global state after the calls; SCRIPT may be left out");
  AddJsonFlag(command, &options->json);
  command->SetFooter(ScriptHelp() + R"(
Each call is shown with its status, its results, the number of open handles, and the log
lines it caused. --state shows the calls in brief; --json works with --state, and then shows
the calls on standard error. The state is that of kaloctl's own copy of the library; it keeps
the addresses of closed sessions, which are marked.

Exit status: 0 done, 1 a call failed or was not made, 2 the script or the usage is wrong.)");
  command->SetAction([=] {
    if (options->script.empty() && !options->state) {
      throw common::UsageError("no script given; name a file, or use --state");
    }
    if (options->json && !options->state) throw common::UsageError("--json requires --state");
    options->run.brief = options->state;
    options->run.showLog = !options->state && !options->noLog;
    return RunScript(*options);
  });
}

}  // namespace kaloctl
