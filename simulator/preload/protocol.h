#pragma once

#include <cstddef>
#include <cstdint>

#include "simulator/device/device_abi.h"

// The protocol between a program with the preload library and the server in `zulisim`.
//
//   a program, with libzulisim_preload.so                        zulisim
//   ------------------------------------------------------       -----------------------------
//   a thread calls write(fd, ...)
//     hooks/device_hooks.cpp  finds that fd is the device
//     remote_device.cpp       makes a Message
//     channel.cpp             sends it  ---- channel ---->       a thread per channel
//                                                                  device_server.cpp
//                                                                  Device::Write
//     channel.cpp             <---- the response, on the same channel
//   write returns
//
// Start. After loading, the library sends kLoaded, so that `zulisim` knows that it was loaded.
//
// Threads. The library starts none: the program's own thread sends a request and waits for its
// response. `zulisim` has one thread that accepts channels, and one thread for each channel, which
// reads a request, moves to the caller's processor, calls the device, and sends the response. So a
// device that is slow for one thread delays no other.
//
// Channels. A channel is a stream socket from the program to the server. It carries one exchange at
// a time, so threads and processes never mix up their responses. The library owns the program's
// end. A process keeps up to eight channels open for the next exchange, connects another when all
// of them are in use, and closes that one after its exchange. A forked child starts without any.
// A program may close descriptors that it did not open: the library then connects a new channel.
// The server's end belongs to the thread that serves it.
//
// Descriptors. The descriptor that open() returns is such a socket too, but it carries only kOpen
// and its response. The program owns it, and the kernel counts its duplicates through dup, fork and
// exec. The other end belongs to the server, which uses it for three things:
//   - When the last duplicate is gone, the kernel hangs up the server's end. The server looks for
//     this before each operation and at the end of the run, and closes the connection.
//   - The library reads the response to kOpen without taking it. So the descriptor always polls as
//     readable and writable, like a character device without a poll method. A program that
//     inherited the descriptor through exec reads the response again, and knows by it what the
//     descriptor is.
//   - When more arrives, the program has made a system call that no hook saw. The server remembers
//     that for a warning.
//
// A close takes two exchanges. The library sends kClosing, closes the descriptor and sends kClosed.
// If the server sees a hang-up between the two, it knows that the program has not ended. After
// them, a hang-up means that the last duplicate was closed, and the server closes the connection.
// Without a hang-up, another duplicate is still open.
//
// When one side ends, the other side does not hang. If the server ends, the program's call fails
// with ENODEV. If the program ends, the server's thread ends as soon as the device returns.
namespace zulisim::protocol {

inline constexpr const char* kSocketVariable = "ZULISIM_SOCKET";
// The files that replace "/data/Marvoleth.log" and "/etc/vrel_registry.txt".
inline constexpr const char* kLogVariable = "ZULISIM_LOG";
inline constexpr const char* kRegistryVariable = "ZULISIM_REGISTRY";
// If set, the library under test writes its detailed log lines.
inline constexpr const char* kDetailVariable = "ZULISIM_LOG_DETAIL";

enum class Kind : std::uint32_t { kLoaded, kOpen, kIoctl, kRead, kWrite, kClosing, kClosed };

// A request. Its response is the same message with `payload`, `error` and `value` set.
struct Message {
  Kind kind = Kind::kLoaded;
  // The number of bytes that follow. For a write that is longer than kLongestMessage, the library
  // sends only that many bytes, which is enough for the device to refuse it.
  std::uint32_t payload = 0;
  std::uint64_t connection = 0;
  std::uint64_t length = 0;      // read and write: as passed by the program
  std::uint32_t request = 0;     // ioctl
  std::uint32_t mode = 0;        // open
  std::int32_t flags = 0;        // open; read: O_NONBLOCK or 0
  std::int32_t descriptor = -1;  // open
  std::int32_t processor = -1;   // that the caller runs on
  std::int32_t process = 0;      // the caller
  std::int32_t thread = 0;       //
  // After EMFILE, the library closes the channel, because the server may have refused it.
  std::int32_t error = 0;
  std::int64_t value = 0;
};

static_assert(sizeof(Message) == 64, "both sides must agree");

// Sends a message and its payload. Returns 0 or an errno.
int Send(int socket, const Message& message, const void* payload);

// Receives a message and its payload of up to `room` bytes. Returns 0 or an errno: ENODEV if the
// other side has ended, EMSGSIZE if the payload is longer. Passes `flags` to recv(2).
int Receive(int socket, Message* message, void* payload, std::size_t room, int flags = 0);

}  // namespace zulisim::protocol
