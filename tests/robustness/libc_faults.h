#pragma once

#include <cerrno>
#include <cstdint>
#include <string>

// Makes one call of libc fail that the library under test makes, and no other: the linkage table of
// the library, and of a shared C++ runtime, leads through here. A call is counted only while the
// library runs on behalf of a test and is not inside the simulated device or a test's sink, and not
// on the device, which the simulator makes fail.
namespace faults {

// Lays the linkage tables through here, once. False when the library's cannot be found.
bool Install();

// From here to Disarm calls count, and the one with that number (from 1 on) of `call` fails with
// `error`. What releases something releases it all the same, as libc's calls do. operator new
// counts as malloc, and mutexes have "lock" and "unlock".
void Arm(const std::string& call, uint32_t number, int error = EIO);
// True when the failure has struck.
bool Disarm();

// How often the library left a mutex that it could not enter, since Arm: once, by its contract.
int UnlocksAfterRefusal();

}  // namespace faults
