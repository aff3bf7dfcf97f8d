// kaloctl: calls the library as a driver does, on a device or on the software engine.

#include <algorithm>
#include <cstring>
#include <exception>
#include <iostream>

#include "common/command_line.h"
#include "common/input_error.h"
#include "common/standard_streams.h"
#include "tools/cli/commands.h"
#include "tools/cli/json.h"

namespace {

int Main(int argc, char** argv) {
  common::Command program(
      "kaloctl", "Call the security engine's firmware clients through libkalodll.so",
      std::string("'kaloctl COMMAND --help' describes a command, and kaloctl(1) all of them.\n") +
          "Without a device: zulisim run kaloctl COMMAND ...\n\n" + kaloctl::kExitStatusHelp +
          "\nOutput to a terminal has colours, unless NO_COLOR is set.",
      KALOCTL_VERSION);
  for (const auto define : {kaloctl::DefineProbe, kaloctl::DefineSend, kaloctl::DefineRun,
                            kaloctl::DefineLog, kaloctl::DefineRegistry, kaloctl::DefineDoctor}) {
    define(&program);
  }
  return program.Run(argc, argv);
}

// Prints the reason for a failure. With --json, prints it on standard output too, because scripts
// read only that.
int Fail(int argc, char** argv, const std::exception& error, int status) {
  std::cerr << "kaloctl: " << error.what() << '\n';
  const bool json = std::any_of(argv, argv + argc,
                                [](const char* word) { return std::strcmp(word, "--json") == 0; });
  if (json) {
    kaloctl::PrintJson({{"error", {{"text", error.what()}}}}, -1);
  }
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  common::PrepareStandardStreams();
  int status = kaloctl::kDone;
  try {
    status = Main(argc, argv);
  } catch (const common::InputError& error) {
    status = Fail(argc, argv, error, kaloctl::kWrongInput);
  } catch (const std::exception& error) {
    status = Fail(argc, argv, error, kaloctl::kFailed);
  }
  return common::FlushStandardOutput("kaloctl") ? status : kaloctl::kFailed;
}
