#pragma once

#include <cerrno>
#include <cstdint>
#include <string>

// Makes one libc call of the library under test fail, by replacing entries in the linkage tables of
// the library and of a shared C++ runtime. Counts only calls that the library makes for a test.
// Does not count calls inside the simulated device or a test's sink, nor calls on the device: the
// simulator makes those fail.
namespace faults {

// Replaces the entries once. Returns false if the library's table was not found.
bool Install();

// Starts counting. The call of `call` with this number, counted from 1, fails with `error`. A
// function that releases something still releases it, as in libc. operator new counts as malloc;
// mutex calls are "lock" and "unlock".
void Arm(const std::string& call, uint32_t number, int error = EIO);
// Stops counting. Returns true if the call failed.
bool Disarm();

}  // namespace faults
