// The device of the preload library: every operation is carried to the engine of another process.
// Built without a C++ runtime library, to be at home in any program.

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "simulator/hooks/descriptors.h"
#include "simulator/hooks/device.h"
#include "simulator/hooks/libc.h"
#include "simulator/hooks/paths.h"
#include "simulator/preload/log_detail.h"
#include "simulator/preload/protocol.h"

namespace zulisim::hooks {
namespace {

using protocol::Kind;
using protocol::Request;
using protocol::Response;
using protocol::Then;

struct Redirect {
  const char* from;
  char to[PATH_MAX];
};

struct Configuration {
  bool served = false;
  struct sockaddr_un address {};
  Redirect redirects[2] = {{"/data/Marvoleth.log", {}}, {"/etc/vrel_registry.txt", {}}};
};

Configuration configuration;
std::atomic<bool> configured{false};

// Threads can only meet here before main, and then write the same values. A libc that makes a call
// of its own before it has set up the environment is not served yet; the next call asks again.
void Configure() {
  if (environ == nullptr) return;
  const char* path = getenv(protocol::kSocketVariable);
  const char* root = getenv(protocol::kRootVariable);
  configuration.address.sun_family = AF_UNIX;
  configuration.served = path != nullptr && strlen(path) < sizeof(configuration.address.sun_path);
  if (configuration.served) strcpy(configuration.address.sun_path, path);
  for (Redirect& redirect : configuration.redirects) {
    if (root == nullptr || strlen(root) + strlen(redirect.from) >= sizeof(redirect.to)) continue;
    strcpy(redirect.to, root);
    strcat(redirect.to, redirect.from);
  }
  configured.store(true, std::memory_order_release);
}

const Configuration& Settings() {
  if (!configured.load(std::memory_order_acquire)) Configure();
  return configuration;
}

constexpr Result kEngineGone{-1, ENODEV};

std::uint64_t Inode(int descriptor) {
  struct stat status;
  return Real().fstat(descriptor, &status) == 0 ? status.st_ino : 0;
}

// A channel that is kept for the next exchange. Whoever has set `taken` owns the rest. The inode
// tells whether the number is still ours: a program may close all that it has.
struct KeptChannel {
  std::atomic<bool> taken{false};
  int socket = -1;
  std::uint64_t inode = 0;
  protocol::Patience patience;
};

// As many exchanges at a time go without a connection of their own.
KeptChannel keptChannels[8];

// The process that they belong to. A fork's child begins with none; a vfork's child, and any other
// that runs no handler, leaves its parent's alone.
std::atomic<pid_t> keeper{0};

void KeepNone() {
  for (KeptChannel& kept : keptChannels) {
    if (kept.socket >= 0 && Inode(kept.socket) == kept.inode) Real().close(kept.socket);
    kept.socket = -1;
    kept.taken.store(false, std::memory_order_relaxed);
  }
  keeper.store(getpid());
}

// A number that a program will hardly meet: the low ones are its own.
int OutOfTheWay(int descriptor) {
  struct rlimit limit;
  if (descriptor < 0 || getrlimit(RLIMIT_NOFILE, &limit) != 0) return descriptor;
  const rlim_t least = (limit.rlim_cur < 1024 ? limit.rlim_cur : 1024) / 4 * 3;
  const std::uintptr_t argument = least;
  const int moved = Real().fcntl(descriptor, F_DUPFD_CLOEXEC, reinterpret_cast<void*>(argument));
  if (moved < 0) return descriptor;
  Real().close(descriptor);
  return moved;
}

// -1 and errno when there is no way to the engine.
int Connect() {
  const int channel = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const Configuration& settings = Settings();
  const auto* address = reinterpret_cast<const struct sockaddr*>(&settings.address);
  while (channel >= 0 && connect(channel, address, sizeof(settings.address)) != 0) {
    if (errno == EINTR) continue;
    Real().close(channel);
    errno = ENODEV;
    return -1;
  }
  return OutOfTheWay(channel);
}

// A channel to the engine for one exchange: a kept one, or one of its own when all are taken.
class Channel {
 public:
  Channel() {
    if (keeper.load() == getpid()) kept_ = Take();
    const bool isOurs =
        kept_ != nullptr && kept_->socket >= 0 && Inode(kept_->socket) == kept_->inode;
    if (isOurs) {
      socket_ = kept_->socket;
    } else {
      Open();
    }
  }
  ~Channel() {
    if (kept_ == nullptr) {
      Drop();
    } else {
      kept_->socket = socket_;
      kept_->taken.store(false, std::memory_order_release);
    }
  }
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  // `in` is the payload of the request, `out` has room for `room` bytes of the response's. `passed`
  // is a descriptor that goes with the request, or -1. After any failure of the channel's own the
  // engine counts as gone.
  Result Exchange(Request request, const void* in, void* out, std::size_t room, Then* then,
                  int passed = -1) {
    if (socket_ < 0) return {-1, error_};
    request.process = getpid();
    request.thread = gettid();
    const int error =
        protocol::Send(socket_, &request, sizeof(request), in, request.payload, passed);
    if (error == EFAULT) {
      // The engine is to know, and to say, that the program's address is bad.
      Drop();
      Open();
      request.hasBuffer = 0;
      request.payload = 0;
      return Exchange(request, nullptr, out, room, then, passed);
    }
    // Where the engine has no room, its response is there although nobody took the request.
    return error == 0 || error == EPIPE || error == ECONNRESET ? Receive(out, room, then) : Gone();
  }

  // The second part of a close.
  Result Finish() {
    const char closed = 0;
    Then then;
    if (socket_ < 0 || protocol::Send(socket_, &closed, sizeof(closed), nullptr, 0) != 0) return {};
    const Result result = Receive(nullptr, 0, &then);
    return socket_ < 0 ? Result{} : result;
  }

 private:
  static KeptChannel* Take() {
    for (KeptChannel& kept : keptChannels) {
      if (!kept.taken.exchange(true, std::memory_order_acquire)) return &kept;
    }
    return nullptr;
  }

  void Open() {
    socket_ = Connect();
    if (socket_ < 0) error_ = errno == EMFILE || errno == ENFILE ? errno : ENODEV;
    if (kept_ != nullptr) kept_->inode = Inode(socket_);
  }

  Result Receive(void* out, std::size_t room, Then* then) {
    Response response;
    std::size_t come = 0;
    protocol::Patience own;
    int error = protocol::ReceiveHead(socket_, &response, sizeof(response), out, room, &come,
                                      kept_ != nullptr ? &kept_->patience : &own);
    const bool badAddress = error == EFAULT;
    if (badAddress) error = protocol::Receive(socket_, &response, sizeof(response));
    if (error != 0 || response.payload > room) return Gone();
    *then = response.then;
    if (badAddress) error = EFAULT;
    if (error == 0 && come < response.payload) {
      error = protocol::Receive(socket_, static_cast<char*>(out) + come, response.payload - come);
    }
    if (error != 0 || response.then == Then::kDropChannel) Drop();  // with what it still holds
    return error == 0 ? Result{response.value, response.error} : Result{-1, error};
  }

  Result Gone() {
    Drop();
    return kEngineGone;
  }

  void Drop() {
    if (socket_ >= 0) Real().close(socket_);
    socket_ = -1;
  }

  KeptChannel* kept_ = nullptr;
  int socket_ = -1;
  int error_ = 0;
};

Result Exchange(const Request& request, const void* in = nullptr, void* out = nullptr,
                std::size_t room = 0) {
  Then then;
  return Channel().Exchange(request, in, out, room, &then);
}

// Descriptors of the device that came through an exec: the engine knows them.
void AdoptInherited() {
  DIR* folder = opendir("/proc/self/fd");
  if (folder == nullptr) return;
  while (const struct dirent* entry = readdir(folder)) {
    const int descriptor = atoi(entry->d_name);
    struct stat status;
    if (entry->d_name[0] == '.' || Real().fstat(descriptor, &status) != 0) continue;
    if (!S_ISSOCK(status.st_mode)) continue;
    Request request;
    request.kind = Kind::kAdopt;
    request.inode = status.st_ino;
    const Result flags = Exchange(request);
    if (flags.value != -1) {
      MarkDescriptor(descriptor, request.inode, static_cast<int>(flags.value));
    }
  }
  closedir(folder);
}

// The channel that this uses is not kept: many a program never opens the device.
__attribute__((constructor(103))) void AttachAtStart() {
  if (!Settings().served) return;
  const int savedErrno = errno;
  AdoptInherited();
  Exchange(Request());
  pthread_atfork(nullptr, nullptr, KeepNone);
  KeepNone();
  errno = savedErrno;
}

}  // namespace

bool DeviceServed() { return Settings().served; }

const char* RedirectedPath(const char* path) {
  for (const Redirect& redirect : Settings().redirects) {
    if (redirect.to[0] == '\0' || !SamePath(path, redirect.from)) continue;
    if (&redirect == Settings().redirects) RaiseLogLevel();
    return redirect.to;
  }
  return nullptr;
}

OpenedDevice DeviceOpen(int flags, unsigned mode) {
  Channel channel;
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return {-1, 0, errno};
  Request request;
  request.kind = Kind::kOpen;
  request.flags = flags;
  request.mode = mode;
  request.descriptor = ends[0];
  request.inode = Inode(ends[0]);
  Then then;
  const Result result = channel.Exchange(request, nullptr, nullptr, 0, &then, ends[1]);
  Real().close(ends[1]);
  if (result.value == -1) {
    Real().close(ends[0]);
    return {-1, 0, result.error};
  }
  if ((flags & O_CLOEXEC) == 0) Real().fcntl(ends[0], F_SETFD, nullptr);
  return {ends[0], request.inode, 0};
}

Result DeviceIoctl(std::uint64_t handle, std::uint32_t number, void* argument) {
  Request request;
  request.kind = Kind::kIoctl;
  request.inode = handle;
  request.request = number;
  request.hasBuffer = argument != nullptr;
  request.payload = argument != nullptr ? IoctlSize(number) : 0;
  return Exchange(request, argument, argument, request.payload);
}

Result DeviceRead(std::uint64_t handle, int descriptor, void* buffer, std::size_t length) {
  Request request;
  request.kind = Kind::kRead;
  request.inode = handle;
  request.length = length;
  request.hasBuffer = buffer != nullptr;
  const std::size_t room = length < kLongestMessage ? length : kLongestMessage;
  Then then = Then::kNothing;
  const Result result =
      Channel().Exchange(request, nullptr, buffer, buffer != nullptr ? room : 0, &then);
  if (then == Then::kDiscardPacket) recv(descriptor, nullptr, 0, MSG_DONTWAIT);
  if (then != Then::kTakePacket) return result;
  const ssize_t taken = Real().read(descriptor, buffer, length);
  return {taken, taken < 0 ? errno : 0};
}

Result DeviceWrite(std::uint64_t handle, const void* buffer, std::size_t length) {
  Request request;
  request.kind = Kind::kWrite;
  request.inode = handle;
  request.length = length;
  request.hasBuffer = buffer != nullptr;
  if (buffer != nullptr) {
    request.payload = length < kLongestMessage ? length : kLongestMessage;
  }
  return Exchange(request, buffer);
}

Result DeviceClose(std::uint64_t handle, int descriptor) {
  Channel channel;
  Request request;
  request.kind = Kind::kClose;
  request.inode = handle;
  Then then;
  const bool announced = channel.Exchange(request, nullptr, nullptr, 0, &then).value == 0;
  Real().close(descriptor);
  return announced ? channel.Finish() : Result{};
}

}  // namespace zulisim::hooks
