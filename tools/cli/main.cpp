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
      std::string("'kaloctl COMMAND --help' and kaloctl-COMMAND(1) describe a command.\n") +
          "Without a device: zulisim run kaloctl COMMAND ...\n\n" + kaloctl::kExitStatusHelp +
          "\nOutput to a terminal has colours, unless NO_COLOR is set.",
      KALOCTL_VERSION);
  for (const auto define : {kaloctl::DefineProbe, kaloctl::DefineSend, kaloctl::DefineRun,
                            kaloctl::DefineLog, kaloctl::DefineRegistry, kaloctl::DefineDoctor}) {
    define(&program);
  }
  return program.Run(argc, argv);
}

}  // namespace

int main(int argc, char** argv) {
  common::PrepareStandardStreams();
  int status = kaloctl::kDone;
  try {
    status = Main(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "kaloctl: " << error.what() << '\n';
    // With --json, scripts read only standard output.
    const auto isJson = [](const char* word) { return std::strcmp(word, "--json") == 0; };
    if (std::any_of(argv, argv + argc, isJson)) {
      kaloctl::PrintJson({{"error", {{"text", error.what()}}}}, -1);
    }
    const bool wrongInput = dynamic_cast<const common::InputError*>(&error) != nullptr;
    status = wrongInput ? kaloctl::kWrongInput : kaloctl::kFailed;
  }
  return common::FlushStandardOutput("kaloctl") ? status : kaloctl::kFailed;
}
