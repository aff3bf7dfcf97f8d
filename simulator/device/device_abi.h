#pragma once

#include <cstddef>
#include <cstdint>

// What a program and a device pass to each other. The hooks of the preload library include this
// header, so nothing here may need a C++ runtime library.
namespace zulisim {

// The result of an operation: `value` and, where that is -1, an errno.
struct Result {
  std::int64_t value = 0;
  int error = 0;
};

// In bytes. No client accepts longer messages, and every attachment can carry one in one piece.
inline constexpr std::size_t kLongestMessage = 1 << 20;

// Connects an open file to a client. The argument has 16 bytes. The program passes the client's
// GUID. The device returns the maximum message length (32-bit little-endian), the protocol version
// (one byte), three zero bytes, and bytes 8 to 15 as the program passed them.
inline constexpr std::uint32_t kConnectRequest = 0xC0104801;

// The size field of an ioctl request: how many bytes its argument has.
inline constexpr std::size_t IoctlSize(std::uint32_t request) { return request >> 16 & 0x3fff; }

}  // namespace zulisim
