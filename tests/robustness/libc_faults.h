#pragma once

#include "tests/support/standard_headers.h"
#include <string_view>

// Makes one libc call of the library under test fail, by replacing addresses in the linkage tables
// of the library and of a shared C++ runtime. The dynamic linker must have bound the functions: set
// LD_BIND_NOW. Does not count calls inside the simulated device, nor calls on the device: the
// simulator makes those fail.
namespace faults {

// Starts counting. The call of `call` with this number, counted from 1, fails with `error`, or
// without setting errno if that is 0. A function that releases something, or that works on
// a mutex, does its work nevertheless. operator new counts as malloc. `call` must live until
// Disarm.
void Arm(std::string_view call, uint32_t number, int error = EIO);
// Stops counting. Returns true if the call failed.
bool Disarm();

}  // namespace faults
