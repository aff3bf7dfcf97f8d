#include <iostream>
#include <memory>
#include <string>

#include "common/format.h"
#include "simulator/cli/commands.h"
#include "simulator/control/control_server.h"
#include "simulator/scenario/instruction.h"

namespace zulisim {
namespace {

constexpr const char* kTellFooter = R"(
Arguments are as in the options of 'zulisim run', but WHEN counts from now on.

Examples:
  zulisim tell /tmp/zuli lose
  zulisim tell /tmp/zuli fault 'read:1@kalo=EIO'

Exit status: 0; 125 when no zulisim serves NAME, or when it refuses the instruction.)";

std::string Footer() {
  std::string text = R"(Instructions:
  lose
    Lose the device now; every open fails until 'back'
  lose opens=N,errno=ERRNO
    The same, but only the next N opens fail, with that errno
  back
    Let the next open find the device again
  release
    Release the replies that are held (--reply ...,hold)
  counts
    Show how often each operation and each instruction has happened
)";
  for (const FaultKind& kind : FaultKinds()) {
    text += common::Format("  {} {}\n    {}\n", kind.option, kind.Form(), kind.help);
  }
  return text + kTellFooter;
}

struct TellOptions {
  std::string name, what, argument;
};

}  // namespace

void DefineTell(common::Command* program) {
  common::Command* command =
      program->AddCommand("tell", "Sends an instruction to a running 'zulisim serve'.", Footer());
  const auto options = std::make_shared<TellOptions>();
  command->AddText("NAME", &options->name, "The served file, as in '/tmp/zuli'");
  command->AddText("WHAT", &options->what, "An instruction; see below");
  command->Require({"NAME", "WHAT"});
  command->AddText("ARGUMENT", &options->argument, "The instruction's argument");
  command->SetAction([=] {
    const std::string argument = options->argument.empty() ? "" : " " + options->argument;
    std::cout << ControlServer::Ask(options->name, options->what + argument);
    return 0;
  });
}

}  // namespace zulisim
