#pragma once

namespace CLI {
class App;
}

namespace kaloctl {

// What the program exits with.
enum ExitStatus : int {
  kDone = 0,
  kFailed = 1,      // a call of the library or the device failed, or a check did
  kWrongInput = 2,  // usage, or the content of a file
  kRefused = 3,     // the firmware answered with a negative status
};

constexpr char kExitStatusHelp[] =
    "Exit status: 0 done, 1 the library, the device or a check failed, 2 wrong usage or input,\n"
    "3 'send' was answered with a negative status.";

// Each adds its command to the program. When the command is chosen it runs, stores one of
// ExitStatus in `exitStatus`, which must outlive the parsing, and throws common::InputError for
// wrong input.
void AddProbeCommand(CLI::App& app, int& exitStatus);
void AddSendCommand(CLI::App& app, int& exitStatus);
void AddRunCommand(CLI::App& app, int& exitStatus);
void AddLogCommand(CLI::App& app, int& exitStatus);
void AddDoctorCommand(CLI::App& app, int& exitStatus);
void AddRegistryCommand(CLI::App& app, int& exitStatus);
void AddStateCommand(CLI::App& app, int& exitStatus);

}  // namespace kaloctl
