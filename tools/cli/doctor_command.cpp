#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "common/command_line.h"
#include "common/input_error.h"
#include "tools/cli/commands.h"
#include "tools/cli/exit_status.h"
#include "tools/doctor/doctor.h"

namespace kaloctl {
namespace {

std::string CheckNames() {
  std::string names;
  for (const std::string& name : DoctorChecks()) names += (names.empty() ? "" : "|") + name;
  return names;
}

int Examine(const DoctorOptions& options) {
  const std::vector<std::string> known = DoctorChecks();
  for (const std::string& name : options.skip) {
    if (std::find(known.begin(), known.end(), name) == known.end()) {
      throw common::InputError("--skip '" + name + "': one of " + CheckNames() + " is expected");
    }
  }
  return RunDoctor(std::cout, common::ColoursFor(stdout), options) ? kDone : kFailed;
}

}  // namespace

void AddDoctorCommand(CLI::App& app, int& exitStatus) {
  struct Arguments {
    DoctorOptions options;
    std::optional<uint32_t> command;
  };
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand(
      "doctor", "Check all that the library needs, with a remedy for each fault");
  common::AddNumberOption(*command, "--command", arguments->command,
                          "Command of the round trip (default: 0)");
  command->add_option("--skip", arguments->options.skip, "Checks to leave out")
      ->type_name(CheckNames())
      ->delimiter(',');
  command->footer(
      "Checks that the device node is there and opens, that the KALO and FENU clients connect, "
      "that\n"
      "a bare header with the command is answered, whatever the answer's status, that the log "
      "file\n"
      "can be written, and that the registry file loads. The exit status is 1 when a check "
      "failed.\n");
  command->callback([arguments, &exitStatus] {
    arguments->options.command = arguments->command.value_or(0);
    exitStatus = Examine(arguments->options);
  });
}

}  // namespace kaloctl
