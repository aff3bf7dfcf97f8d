#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>
#include <vector>

#include "simulator/output/run_output.h"
#include "simulator/scenario/scenario.h"

namespace zulisim {

// zulisim's own failure; the same for every command that starts a program.
inline constexpr int kOwnFailure = 125;

// What the command line asks for.
struct Invocation {
  std::vector<std::string> program;  // all that stands behind "--"
  std::function<int()> run;          // set by the command that is chosen; returns the exit status
};

// Each adds a command to `app`; `invocation` must outlive it.
void DefineRun(CLI::App* app, Invocation* invocation);
void DefineCheck(CLI::App* app, Invocation* invocation);
void DefineRecord(CLI::App* app, Invocation* invocation);
void DefineReplay(CLI::App* app, Invocation* invocation);
void DefineServe(CLI::App* app, Invocation* invocation);

// --- What commands have in common. ---

// Has `command` run `action` for the program behind "--", without which it is refused.
void DefineProgramRun(CLI::App* command, Invocation* invocation,
                      const std::function<int()>& action);

// Throws CLI::ValidationError when a file that is to be written is named by another option as well,
// or was read for `scenario`. To be called before the first of them is opened.
void RefuseSharedFiles(const CLI::App& command, const Scenario& scenario);

// --scenario, --client, --reply, --fault, --short and --lose, in the order of the command line.
void AddInstructionOptions(CLI::App* command, Scenario* scenario);
// True when the command line had one of them.
bool HasInstructions(const CLI::App& command);
// --device, for MakeServedProgram
void AddDeviceOption(CLI::App* command, std::string* attachment);
// --root
void AddRootOption(CLI::App* command, std::string* root);
// --quiet, --transcript, --connection-numbers, --trace and --report
void AddObservationOptions(CLI::App* command, ObservationOptions* options);

}  // namespace zulisim
