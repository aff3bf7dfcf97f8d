#pragma once

namespace kaloctl {

// What the program exits with.
enum ExitStatus : int {
  kDone = 0,
  kFailed = 1,      // a call of the library or the device failed, or a check did
  kWrongInput = 2,  // usage, or the content of a file
};

constexpr char kExitStatusHelp[] =
    "Exit status: 0 done, 1 the library, the device or a check failed, 2 wrong usage or input.";

}  // namespace kaloctl
