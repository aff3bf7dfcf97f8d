#pragma once

namespace CLI {
class App;
}

namespace kaloctl {

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
