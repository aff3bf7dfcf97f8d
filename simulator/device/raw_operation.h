#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "simulator/device/device.h"
#include "simulator/device/operation.h"

namespace zulisim {

// One operation as it crosses the device's boundary: what the program passed and what it got.
struct RawOperation {
  Operation operation = Operation::kOpen;
  bool gone = false;             // a close that is none: the program ended without it
  std::uint64_t connection = 0;  // 0 for a failed open, and for a descriptor that nobody knows
  int flags = 0;                 // open
  unsigned mode = 0;             // open, and 0 where the flags give it no meaning
  std::uint32_t request = 0;     // ioctl
  std::uint64_t length = 0;      // read and write
  bool hasBuffer = true;         // ioctl, read and write: false for null or a bad address
  Bytes input;                   // write: the message; ioctl: the argument before
  Result result;                 // an open's value is 0
  Bytes output;                  // read: the message; ioctl: the argument after
  std::chrono::nanoseconds start{};
  std::chrono::nanoseconds took{};
  std::string note;  // why it failed or fell short, if that is known
};

// The mode of an open, which is whatever lay on the stack when the flags do not ask for it.
unsigned OpenMode(int flags, unsigned mode);

// How many bytes `input` and `output` have, by what else is known of the operation.
std::size_t InputSize(const RawOperation& operation);
std::size_t OutputSize(const RawOperation& operation);

// True when a program that passes what `b` passes does what it did in `a`. Of an open's arguments
// only those flags count that reach a device.
bool SameCall(const RawOperation& a, const RawOperation& b);

// "write 64 bytes, command 0x11"
std::string CallText(const RawOperation& operation);

// "ok", a count, or the name of an errno; "E512" for one that has none.
std::string ResultText(const RawOperation& operation);

// "O_RDWR|O_CLOEXEC"; bits without a name follow in hexadecimal.
std::string OpenFlagsText(int flags);

}  // namespace zulisim
