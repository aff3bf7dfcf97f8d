#pragma once

#include <cstddef>
#include <cstdint>

// The binary interface of a device. The hooks of the preload library use it too, so nothing here
// needs a C++ runtime library.
namespace zulisim {

// The result of an operation: `value` and, where that is -1, an errno.
struct Result {
  std::int64_t value = 0;
  int error = 0;
};

// The longest message that a client can accept. Every attachment can carry it in one piece.
inline constexpr std::size_t kLongestMessage = 1 << 20;

// Binds an open file to a client: 16 bytes, the client's GUID in; out the maximum message length
// (32-bit little-endian), the protocol version (one byte), three zero bytes, and bytes 8 to 15 as
// they were passed.
inline constexpr std::uint32_t kConnectRequest = 0xC0104801;

// The size field of an ioctl request: how many bytes its argument has.
inline constexpr std::size_t IoctlSize(std::uint32_t request) { return request >> 16 & 0x3fff; }

}  // namespace zulisim
