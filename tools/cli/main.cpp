// Drives the library as a driver would, on a device or on the software engine.

#include <exception>
#include <iostream>

#include <CLI/CLI.hpp>

#include "common/command_line.h"
#include "common/input_error.h"
#include "common/standard_streams.h"
#include "tools/cli/commands.h"

namespace {

int Main(int argc, char** argv) {
  int exitStatus = kaloctl::kDone;
  CLI::App app("Talks to the security engine's firmware clients through libkalodll.so", "kaloctl");
  app.require_subcommand(1);
  app.set_version_flag("--version", "kaloctl " KALOCTL_VERSION);
  app.get_formatter()->column_width(26);
  app.footer(std::string("kaloctl COMMAND --help tells all about a command.\n") +
             "Without a device: zulisim run -- kaloctl COMMAND ...\n\n" + kaloctl::kExitStatusHelp +
             "\nColour is used on a terminal only, and not while NO_COLOR is set.");
  kaloctl::AddProbeCommand(app, exitStatus);
  kaloctl::AddSendCommand(app, exitStatus);
  kaloctl::AddRunCommand(app, exitStatus);
  kaloctl::AddStateCommand(app, exitStatus);
  kaloctl::AddLogCommand(app, exitStatus);
  kaloctl::AddRegistryCommand(app, exitStatus);
  kaloctl::AddDoctorCommand(app, exitStatus);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    std::cerr << common::ErrorText(app, error);
    return kaloctl::kWrongInput;
  } catch (const common::InputError& error) {
    std::cerr << "kaloctl: " << error.what() << '\n';
    return kaloctl::kWrongInput;
  } catch (const std::exception& error) {
    std::cerr << "kaloctl: " << error.what() << '\n';
    return kaloctl::kFailed;
  }
  std::cout.flush();
  if (!std::cout) {
    std::cerr << "kaloctl: standard output cannot be written\n";
    return kaloctl::kFailed;
  }
  return exitStatus;
}

}  // namespace

int main(int argc, char** argv) {
  common::OccupyStandardDescriptors();
  return Main(argc, argv);
}
