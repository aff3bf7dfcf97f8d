#pragma once

#include "common/command_line.h"

namespace kaloctl {

// The exit status of the program.
enum ExitStatus : int {
  kDone = 0,
  kFailed = 1,      // the library, the device or a check failed
  kWrongInput = 2,  // wrong usage or invalid input
  kRefused = 3,     // the firmware replied with a negative status
};

constexpr char kExitStatusHelp[] =
    "Exit status: 0 done, 1 the library, the device or a check failed, 2 wrong usage or input,\n"
    "3 'send' received a negative status.";

// Each function adds one command to `program`. The command's action returns an ExitStatus and
// throws common::InputError for wrong input.
void DefineProbe(common::Command* program);
void DefineSend(common::Command* program);
void DefineRun(common::Command* program);
void DefineLog(common::Command* program);
void DefineRegistry(common::Command* program);
void DefineDoctor(common::Command* program);

}  // namespace kaloctl
