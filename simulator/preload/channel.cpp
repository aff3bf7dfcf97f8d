#include "simulator/preload/channel.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "simulator/hooks/libc.h"

namespace zulisim::hooks {
namespace {

struct sockaddr_un server {};

// A channel that is kept for the next exchange. The thread that has set `taken` owns the other
// members.
struct KeptChannel {
  std::atomic<bool> taken{false};
  int socket = -1;
  std::uint64_t inode = 0;  // shows whether the program has closed the socket
};
KeptChannel keptChannels[8];

// The process that owns the kept channels. The child of a vfork shares this memory but runs no fork
// handler, so it does not use its parent's channels.
std::atomic<pid_t> keeper{0};

std::uint64_t Inode(int descriptor) {
  struct stat status;
  return Real().fstat(descriptor, &status) == 0 ? status.st_ino : 0;
}

void KeepNone() {
  for (KeptChannel& kept : keptChannels) {
    if (kept.socket >= 0 && Inode(kept.socket) == kept.inode) Real().close(kept.socket);
    kept.socket = -1;
    kept.taken.store(false, std::memory_order_relaxed);
  }
  keeper.store(getpid());
}

__attribute__((constructor(103))) void KeepFromTheStart() {
  pthread_atfork(nullptr, nullptr, KeepNone);
  KeepNone();
}

KeptChannel* TakeKept() {
  if (keeper.load() != getpid()) return nullptr;
  for (KeptChannel& kept : keptChannels) {
    if (!kept.taken.exchange(true, std::memory_order_acquire)) return &kept;
  }
  return nullptr;
}

// Moves a socket to a high number, if the process's limit allows it, because programs rarely expect
// a high number for their own files.
int MovedUp(int socket) {
  constexpr std::uintptr_t kLeast = 768;
  const int moved = Real().fcntl(socket, F_DUPFD_CLOEXEC, reinterpret_cast<void*>(kLeast));
  if (moved < 0) return socket;
  Real().close(socket);
  return moved;
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
    Real().close(connected);
    errno = ENODEV;
    return -1;
  }
  return connected;
}

Result Exchange(protocol::Message message, const void* in, void* out, std::size_t room) {
  KeptChannel* const kept = TakeKept();
  const bool isOpen = kept != nullptr && kept->socket >= 0 && Inode(kept->socket) == kept->inode;
  int channel = isOpen ? kept->socket : Connect();
  if (!isOpen && channel >= 0) channel = MovedUp(channel);
  int error = channel >= 0 ? protocol::Send(channel, message, in) : errno;
  // A server that refuses the channel sends its response without reading the request.
  if (channel >= 0 && (error == 0 || error == EPIPE || error == ECONNRESET)) {
    error = protocol::Receive(channel, &message, out, room);
  }
  const bool keeps = error == 0 && message.error != EMFILE && kept != nullptr;
  if (channel >= 0 && !keeps) Real().close(channel);
  if (kept != nullptr) {
    if (keeps && !isOpen) kept->inode = Inode(channel);
    kept->socket = keeps ? channel : -1;
    kept->taken.store(false, std::memory_order_release);
  }
  if (error == 0) return {message.value, message.error};
  return {-1, error == EFAULT || error == EMFILE || error == ENFILE ? error : ENODEV};
}

}  // namespace zulisim::hooks
