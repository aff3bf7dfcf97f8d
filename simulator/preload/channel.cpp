#include "simulator/preload/channel.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "simulator/hooks/descriptors.h"
#include "simulator/hooks/libc.h"

namespace zulisim::hooks {
namespace {

struct sockaddr_un server {};

// A channel that is kept for the next exchange, or -1. A thread that uses the channel has taken it
// out.
struct KeptChannel {
  std::atomic<int> socket{-1};
};
KeptChannel keptChannels[8];

// The program may have closed the channel; its number may now belong to another file.
bool IsChannel(int socket) { return !DeviceHandle(socket) && IsConnected(socket); }

void CloseKeptChannels() {
  for (KeptChannel& kept : keptChannels) {
    const int socket = kept.socket.exchange(-1);
    if (socket >= 0 && IsChannel(socket)) Real_close(socket);
  }
}

__attribute__((constructor)) void ShareNoChannelAfterFork() {
  pthread_atfork(nullptr, nullptr, CloseKeptChannels);
}

// Moves a socket to a high number, if the process's limit allows it, because programs rarely expect
// a high number for their own files.
int MovedUp(int socket) {
  constexpr std::uintptr_t kLeast = 768;
  const int moved = Real_fcntl(socket, F_DUPFD_CLOEXEC, reinterpret_cast<void*>(kLeast));
  if (moved < 0) return socket;
  Real_close(socket);
  return moved;
}

// Returns a channel that only the caller uses, or -1 with errno.
int TakeChannel() {
  for (KeptChannel& kept : keptChannels) {
    const int socket = SharesMemory() ? -1 : kept.socket.exchange(-1);
    if (socket >= 0 && IsChannel(socket)) return socket;
  }
  const int socket = Connect();
  return socket >= 0 ? MovedUp(socket) : -1;
}

void KeepChannel(int socket) {
  for (KeptChannel& kept : keptChannels) {
    int none = -1;
    if (!SharesMemory() && kept.socket.compare_exchange_strong(none, socket)) return;
  }
  Real_close(socket);
}

}  // namespace

bool SetServer(const char* path) {
  if (path == nullptr || strlen(path) >= sizeof(server.sun_path)) return false;
  server.sun_family = AF_UNIX;
  strcpy(server.sun_path, path);
  return true;
}

bool IsConnected(int descriptor) {
  struct sockaddr_un peer {};
  socklen_t size = sizeof(peer);
  return getpeername(descriptor, reinterpret_cast<struct sockaddr*>(&peer), &size) == 0 &&
         memcmp(&peer, &server, sizeof(peer)) == 0;
}

int Connect() {
  const int connected = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  while (connected >= 0 && connect(connected, reinterpret_cast<const struct sockaddr*>(&server),
                                   sizeof(server)) != 0) {
    if (errno == EINTR) continue;
    Real_close(connected);
    errno = ENODEV;
    return -1;
  }
  return connected;
}

Result Exchange(protocol::Message message, const void* in, void* out, std::size_t room) {
  const int channel = TakeChannel();
  int error = channel >= 0 ? protocol::Send(channel, message, in) : errno;
  // A server that refuses the channel sends its response without reading the request.
  if (channel >= 0 && (error == 0 || error == EPIPE || error == ECONNRESET)) {
    error = protocol::Receive(channel, &message, out, room);
  }
  if (error == 0 && message.error != EMFILE) {
    KeepChannel(channel);
  } else if (channel >= 0) {
    Real_close(channel);
  }
  if (error == 0) return {message.value, message.error};
  return {-1, error == EFAULT || error == EMFILE || error == ENFILE ? error : ENODEV};
}

}  // namespace zulisim::hooks
