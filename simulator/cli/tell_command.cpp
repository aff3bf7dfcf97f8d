#include <iostream>
#include <memory>
#include <string>

#include "simulator/cli/commands.h"
#include "simulator/control/control_server.h"

namespace zulisim {
namespace {

constexpr const char* kTellFooter = R"(
What can be told:
  lose                     the device is lost now, and every open fails until 'back'
  lose opens=N,errno=E     ... only so many opens, with that errno; 'opens=0': none
  lose OPERATION:WHEN      the device will be lost there
  back                     the next open finds the device again
  fault OPERATION:WHEN=E   an operation will fail
  short OPERATION:WHEN=N   a read or write will move only so many bytes
  release                  replies that are held (--reply ...,hold) go
  counts                   what has happened so far

WHEN counts from now on; otherwise all is as in the options of 'zulisim run'.

Examples:
  zulisim tell /tmp/zuli lose
  zulisim tell /tmp/zuli fault 'read:1@kalo=EIO'

Exit status: 0; 125 when nobody serves NAME, or for what it refuses.)";

struct TellOptions {
  std::string name;
  std::string what;
  std::string argument;
};

int Tell(const TellOptions& options) {
  const std::string argument = options.argument.empty() ? "" : " " + options.argument;
  std::cout << ControlServer::Ask(options.name, options.what + argument);
  return 0;
}

}  // namespace

void DefineTell(common::Command* program) {
  common::Command* command =
      program->AddCommand("tell", "Tells a running 'zulisim serve' what is to happen next.");
  command->SetFooter(kTellFooter);
  const auto options = std::make_shared<TellOptions>();
  command->AddText("NAME", &options->name, "", "What is served, as in '/tmp/zuli'").Require();
  command->AddText("WHAT", &options->what, "", "One of those below").Require();
  command->AddText("ARGUMENT", &options->argument, "", "What belongs to it");
  command->SetAction([=] { return Tell(*options); });
}

}  // namespace zulisim
