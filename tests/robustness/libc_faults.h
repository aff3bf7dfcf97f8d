#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

// Makes one call of libc fail that the library under test makes, and no other: the linkage table of
// the library, and of a shared C++ runtime, leads through here. A call is counted only while the
// library runs on behalf of a test and is not inside the simulated device or a test's sink. Calls
// go by names such as "read", and "read dev" on the device.
namespace faults {

// Lays the linkage tables through here, once. False when the library's cannot be found.
bool Install();

// From here to Disarm calls count, and the one with that number (from 1 on) of `call` fails with
// `error`, after `onStrike`. What releases something releases it all the same, as libc's calls do.
void Arm(const std::string& call, uint32_t number, int error, std::function<void()> onStrike = {});
// True when the failure has struck.
bool Disarm();

// Closes the descriptors of the device that the library has left open, and says how many.
size_t CloseDevices();

// How often the library gave back a mutex that it had not got.
int WrongUnlocks();

}  // namespace faults
