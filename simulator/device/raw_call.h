#pragma once

#include <cstddef>
#include <cstdint>

#include "simulator/device/operation.h"
#include "simulator/device/raw_operation.h"

namespace zulisim {

// The monotonic clock that operations are timed by.
std::chrono::nanoseconds Now();

// Nothing for a null buffer.
Bytes Copied(const void* buffer, std::size_t length);

// Operations that begin now: what the program passed, and no result yet.
RawOperation OpenCall(int flags, unsigned mode);
RawOperation IoctlCall(std::uint64_t connection, std::uint32_t request, const void* argument);
RawOperation ReadCall(std::uint64_t connection, const void* buffer, std::size_t length);
RawOperation WriteCall(std::uint64_t connection, const void* buffer, std::size_t length);
RawOperation CloseCall(std::uint64_t connection);
// The program ended and left the connection open.
RawOperation GoneCall(std::uint64_t connection);

}  // namespace zulisim
