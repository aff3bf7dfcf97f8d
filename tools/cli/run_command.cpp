#include <cstdio>
#include <iostream>
#include <memory>

#include "api/kalo_dll_state.h"
#include "common/format.h"
#include "common/input.h"
#include "tools/call/script_runner.h"
#include "tools/call/status_text.h"
#include "tools/cli/commands.h"
#include "tools/cli/json.h"

namespace kaloctl {
namespace {

// An address as text, or null.
Json AddressJson(const void* address) {
  return address == nullptr ? Json() : Json(common::Format("{}", address));
}

// Returns the fields of gKaloDllState by name. A session is shown as its address, or as null.
Json StateJson() {
  const KaloDllState& state = gKaloDllState;
  return {
      {"kaloInterfaceVersion", state.kaloInterfaceVersion},
      {"fenuInterfaceVersion", state.fenuInterfaceVersion},
      {"provisioningSession", AddressJson(state.provisioningSession)},
      {"kaloSessionA", AddressJson(state.kaloSessionA)},
      {"kaloSessionB", AddressJson(state.kaloSessionB)},
      {"fenuSession", AddressJson(state.fenuSession)},
      {"apiErrorText", BoundedText(state.apiErrorText)},
      {"apiErrorCode", state.apiErrorCode},
      {"kaloErrorText", BoundedText(state.kaloErrorText)},
      {"kaloErrorCode", state.kaloErrorCode},
      {"fenuErrorText", BoundedText(state.fenuErrorText)},
      {"fenuErrorCode", state.fenuErrorCode},
      {"lastErrorSource", state.lastErrorSource},
      {"lastErrorContext", AddressJson(state.lastErrorContext)},
      {"lastErrorProcessId", state.lastErrorProcessId},
      {"firmwareApiVersion", state.firmwareApiVersion},
      {"stateInitFlag", state.stateInitFlag},
      {"kaloRefCountA", state.kaloRefCountA},
      {"kaloRefCountB", state.kaloRefCountB},
      {"fenuRefCount", state.fenuRefCount},
      {"sessionBShared", state.sessionBShared},
  };
}

struct ScriptOptions {
  std::string script;
  bool trace = false;
  bool state = false;
  bool json = false;
};

int RunScript(const ScriptOptions& options) {
  std::vector<ScriptStep> steps;
  if (!options.script.empty()) {
    steps = ParseScript(common::ReadInput(options.script), common::InputName(options.script));
  }
  std::ostream& out = options.json ? std::cerr : std::cout;
  ScriptRunner runner(out, common::ColoursFor(options.json ? stderr : stdout), options.trace);
  const bool good = runner.Run(steps);
  if (options.state) PrintJson(StateJson());
  return good ? kDone : kFailed;
}

}  // namespace

void DefineRun(common::Command* program) {
  const auto options = std::make_shared<ScriptOptions>();
  common::Command* command = program->AddCommand(
      "run", "Make the calls of a script and show the result of each", ScriptHelp() + R"(
Prints for each call its status, reply, number of open handles and log lines. --state then
prints the state of kaloctl's own copy of the library. A session keeps its address there after
it is closed. --json requires --state and moves everything else to standard error. Do not send on
a session that another call has closed: this may crash, as in a driver.

Examples:
  zulisim run kaloctl run script.txt
  kaloctl run --state --json

Exit status: 0 every call succeeded, 1 a call failed, 2 wrong usage or script.)");
  command->AddFile("SCRIPT", &options->script, "Read the calls from SCRIPT (- for standard input)");
  command->AddFlag("--trace", &options->trace,
                   "Show the library's trace lines too, and write them to its log file");
  command->AddFlag(
      "--state", &options->state,
      "Show the library's global state after the calls, as JSON; SCRIPT is optional then");
  AddJsonFlag(command, &options->json);
  command->SetAction([=] {
    if (options->script.empty() && !options->state) {
      throw common::UsageError("no script given; name a file, or use --state");
    }
    if (options->json && !options->state) throw common::UsageError("--json requires --state");
    return RunScript(*options);
  });
}

}  // namespace kaloctl
