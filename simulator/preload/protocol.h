#pragma once

#include <sys/socket.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "simulator/device/device_abi.h"

// How the preload library talks to the engine of another process.
//
// A channel is a local stream socket to the engine that carries one exchange at a time: a request
// with its payload, then a response with its payload. A process keeps a few channels, and each
// exchange has one to itself, so threads and forked processes never mix their responses. A program
// may close them, as it may close anything: the next exchange makes a new one.
//
// The program's descriptor of the device is one end of a pair of packet sockets. The other came to
// the engine with the kOpen; its hang-up says that the last duplicate of the program's end is gone,
// which the kernel counts through dup, fork and exec. Both sides know the pair by the inode of the
// program's end. Packets on it:
//   - An empty one lies ready for the program while a read would deliver something, so that poll
//     and its like tell the truth. A read through a channel takes it away when it was the last.
//   - One that the program sends is a write by a system call that no hook saw. From then on the
//     engine reads on the program's behalf and sends each message as a packet: an empty one where
//     a write or a read failed.
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
  kAdopt,  // responds with the open flags of an inherited descriptor, or fails
  kOpen,   // with the engine's end of the pair
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

// What the program is to do before it goes on.
enum class Then : std::uint32_t {
  kNothing,
  kDiscardPacket,  // nothing is left to read: take the empty packet off the descriptor
  kTakePacket,     // the messages are packets on the descriptor: read it itself
  kDropChannel,    // the engine has no room for it: this was its only response
};

struct Response {
  std::int64_t value = 0;
  std::int32_t error = 0;
  std::uint32_t payload = 0;  // bytes that follow
  Then then = Then::kNothing;
  std::uint32_t unused = 0;
};

static_assert(sizeof(Request) == 56 && sizeof(Response) == 24, "both sides must agree");

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

// Sends a head and its payload, and `passed` with them unless it is -1: 0 or an errno.
inline int Send(int socket, const void* head, std::size_t headSize, const void* payload,
                std::size_t payloadSize, int passed = -1) {
  struct iovec pieces[] = {{const_cast<void*>(head), headSize},
                           {const_cast<void*>(payload), payloadSize}};
  alignas(struct cmsghdr) char control[CMSG_SPACE(sizeof(passed))] = {};
  struct msghdr message {};
  message.msg_iov = pieces;
  message.msg_iovlen = 2;
  if (passed >= 0) {
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    struct cmsghdr* rights = CMSG_FIRSTHDR(&message);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(sizeof(passed));
    __builtin_memcpy(CMSG_DATA(rights), &passed, sizeof(passed));
  }
  while (pieces[0].iov_len + pieces[1].iov_len > 0) {
    ssize_t sent = sendmsg(socket, &message, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 0) return errno;
    message.msg_controllen = 0;
    for (struct iovec& piece : pieces) {
      const std::size_t part =
          static_cast<std::size_t>(sent) < piece.iov_len ? sent : piece.iov_len;
      piece.iov_base = static_cast<char*>(piece.iov_base) + part;
      piece.iov_len -= part;
      sent -= static_cast<ssize_t>(part);
    }
  }
  return 0;
}

// How long one side of a channel looks for the other's word before it sleeps. To be woken takes
// several times as long as the word itself, where there is a processor to spare; where there is
// none, looking only keeps the other side from running. So it is done while it pays, and tried
// again ever more rarely while it does not.
class Patience {
 public:
  int Tries() {
    if (pause_ == 0) return kTries;
    --pause_;
    return 0;
  }
  void Learn(bool paid) {
    failures_ = paid ? 0 : failures_ < 8 ? failures_ + 1 : 8;
    pause_ = paid ? 0 : 1 << failures_;
  }

 private:
  static constexpr int kTries = 50;  // 20 microseconds or so
  int pause_ = 0;                    // exchanges without a try
  int failures_ = 0;                 // in a row
};

// Receives a head and what of its payload has come with it, up to `room` bytes: 0 or an errno,
// ENODEV when the other side ends first. `payloadSize` is how much has come; `passed`, unless null,
// is set to a descriptor that came along, or -1.
inline int ReceiveHead(int socket, void* head, std::size_t headSize, void* payload,
                       std::size_t room, std::size_t* payloadSize, Patience* patience,
                       int* passed = nullptr) {
  struct iovec pieces[] = {{head, headSize}, {payload, room}};
  alignas(struct cmsghdr) char control[CMSG_SPACE(sizeof(int))];
  struct msghdr message {};
  message.msg_iov = pieces;
  message.msg_iovlen = 2;
  if (passed != nullptr) {
    *passed = -1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
  }
  ssize_t received;
  int tries = patience->Tries();
  const bool isPatient = tries > 0;
  do {
    received = recvmsg(socket, &message, MSG_CMSG_CLOEXEC | (tries > 0 ? MSG_DONTWAIT : 0));
  } while (received < 0 && (errno == EINTR || (errno == EAGAIN && tries-- > 0)));
  if (isPatient) patience->Learn(tries > 0);
  if (received <= 0) return received == 0 ? ENODEV : errno;
  const struct cmsghdr* rights = passed != nullptr ? CMSG_FIRSTHDR(&message) : nullptr;
  if (rights != nullptr && rights->cmsg_type == SCM_RIGHTS) {
    __builtin_memcpy(passed, CMSG_DATA(rights), sizeof(*passed));
  }
  const auto size = static_cast<std::size_t>(received);
  *payloadSize = size > headSize ? size - headSize : 0;
  if (size >= headSize) return 0;
  return Receive(socket, static_cast<char*>(head) + size, headSize - size);
}

}  // namespace zulisim::protocol
