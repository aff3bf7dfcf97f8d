#pragma once

#include <sys/socket.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "simulator/device/device_abi.h"

// How the preload library talks to the engine of another process, over a local stream socket.
//
// Each operation is a connection of its own: a request with its payload, a response with its
// payload. So threads and forked processes never mix their responses, and nothing is held open that
// a program could close. The connection of a kOpen stays: it is the program's descriptor of the
// device, which the kernel counts through dup, fork and exec, and whose end tells the engine that
// the last one is gone. The descriptor is known to both sides by the inode of the program's end.
//
// No payload is longer than kLongestMessage. A longer write announces its length and sends only
// that much of it, which is enough for the engine to refuse it.
namespace zulisim::protocol {

inline constexpr const char* kSocketVariable = "ZULISIM_SOCKET";
inline constexpr const char* kRootVariable = "ZULISIM_ROOT";
// Set for the library's detailed log lines.
inline constexpr const char* kDetailVariable = "ZULISIM_LOG_DETAIL";

enum class Kind : std::uint32_t {
  kHello,  // the library is loaded
  kOpen,
  kIoctl,
  kRead,
  kWrite,
  // Responded to twice: first when the engine knows that the end of the descriptor is a close;
  // then, after the program has closed it and sent one byte, with the result.
  kClose,
};

struct Request {
  Kind kind = Kind::kHello;
  std::uint32_t request = 0;  // ioctl
  std::uint64_t inode = 0;
  std::uint64_t length = 0;      // read and write, as passed by the program
  std::int32_t flags = 0;        // open
  std::uint32_t mode = 0;        // open
  std::int32_t descriptor = -1;  // open
  std::int32_t process = 0;      // who calls
  std::int32_t thread = 0;       //
  std::uint32_t hasBuffer = 0;   // 0: the program passed null or an address it cannot use
  std::uint64_t payload = 0;     // bytes that follow
};

struct Response {
  std::int64_t value = 0;
  std::int32_t error = 0;
  std::uint32_t payload = 0;  // bytes that follow
};

static_assert(sizeof(Request) == 56 && sizeof(Response) == 16, "both sides must agree");

// Receives `length` bytes: 0 or an errno, ENODEV when the other side ends first.
inline int Receive(int socket, void* buffer, std::size_t length) {
  auto* at = static_cast<unsigned char*>(buffer);
  while (length > 0) {
    const ssize_t received = recv(socket, at, length, 0);
    if (received < 0 && errno == EINTR) continue;
    if (received <= 0) return received == 0 ? ENODEV : errno;
    at += received;
    length -= static_cast<std::size_t>(received);
  }
  return 0;
}

// Sends `length` bytes: 0 or an errno.
inline int Send(int socket, const void* bytes, std::size_t length) {
  const auto* at = static_cast<const unsigned char*>(bytes);
  while (length > 0) {
    const ssize_t sent = send(socket, at, length, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 0) return errno;
    at += sent;
    length -= static_cast<std::size_t>(sent);
  }
  return 0;
}

}  // namespace zulisim::protocol
