// The device of the preload library: every operation is carried to the engine of another process.
// Built without a C++ runtime library, to be at home in any program.

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
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

// One connection to the engine, closed at the end of its scope.
class Channel {
 public:
  explicit Channel(int flags = SOCK_CLOEXEC) : socket_(socket(AF_UNIX, SOCK_STREAM | flags, 0)) {
    const Configuration& settings = Settings();
    const auto* address = reinterpret_cast<const struct sockaddr*>(&settings.address);
    while (socket_ >= 0 && connect(socket_, address, sizeof(settings.address)) != 0) {
      if (errno == EINTR) continue;
      Close();
    }
  }
  ~Channel() { Close(); }
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  int descriptor() const { return socket_; }
  int Detach() {
    const int descriptor = socket_;
    socket_ = -1;
    return descriptor;
  }

  // 0 or an errno; ENODEV when the engine ends first.
  int Send(const void* bytes, std::size_t length) { return protocol::Send(socket_, bytes, length); }
  int Receive(void* buffer, std::size_t length) {
    return protocol::Receive(socket_, buffer, length);
  }

 private:
  void Close() {
    if (socket_ >= 0) Real().close(socket_);
    socket_ = -1;
  }

  int socket_;
};

std::uint64_t Inode(int descriptor) {
  struct stat status;
  return Real().fstat(descriptor, &status) == 0 ? status.st_ino : 0;
}

void NameCaller(Request* request) {
  request->process = getpid();
  request->thread = gettid();
}

// `out` has room for `room` bytes of payload.
Result Exchange(Request request, const void* in, void* out, std::size_t room) {
  Channel channel;
  if (channel.descriptor() < 0) return kEngineGone;
  NameCaller(&request);
  int sendError = channel.Send(&request, sizeof(request));
  if (sendError == 0) sendError = channel.Send(in, request.payload);
  if (sendError == EFAULT) {
    // The engine is to know, and to say, that the program's address is bad.
    request.hasBuffer = 0;
    request.payload = 0;
    return Exchange(request, nullptr, out, room);
  }
  Response response;
  if (sendError != 0 || channel.Receive(&response, sizeof(response)) != 0) return kEngineGone;
  if (response.payload > room) return kEngineGone;
  if (response.payload > 0) {
    if (const int error = channel.Receive(out, response.payload)) return {-1, error};
  }
  return {response.value, response.error};
}

bool IsEngineEnd(int descriptor) {
  struct sockaddr_un peer {};
  socklen_t length = sizeof(peer);
  return getpeername(descriptor, reinterpret_cast<struct sockaddr*>(&peer), &length) == 0 &&
         peer.sun_family == AF_UNIX &&
         strncmp(peer.sun_path, Settings().address.sun_path, sizeof(peer.sun_path)) == 0;
}

// Descriptors of the device that came through an exec.
void AdoptInherited() {
  DIR* folder = opendir("/proc/self/fd");
  if (folder == nullptr) return;
  while (const struct dirent* entry = readdir(folder)) {
    const int descriptor = atoi(entry->d_name);
    if (entry->d_name[0] != '.' && descriptor != dirfd(folder) && IsEngineEnd(descriptor)) {
      MarkDescriptor(descriptor, Inode(descriptor));
    }
  }
  closedir(folder);
}

__attribute__((constructor(103))) void AttachAtStart() {
  if (!Settings().served) return;
  const int savedErrno = errno;
  AdoptInherited();
  Exchange(Request(), nullptr, nullptr, 0);
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
  Channel channel((flags & O_CLOEXEC) != 0 ? SOCK_CLOEXEC : 0);
  if (channel.descriptor() < 0) return {-1, 0, errno == EMFILE || errno == ENFILE ? errno : ENODEV};
  Request request;
  request.kind = Kind::kOpen;
  NameCaller(&request);
  request.flags = flags;
  request.mode = mode;
  request.descriptor = channel.descriptor();
  request.inode = Inode(channel.descriptor());
  Response response;
  if (channel.Send(&request, sizeof(request)) != 0 ||
      channel.Receive(&response, sizeof(response)) != 0) {
    return {-1, 0, ENODEV};
  }
  if (response.value == -1) return {-1, 0, response.error};
  return {channel.Detach(), request.inode, 0};
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

Result DeviceRead(std::uint64_t handle, void* buffer, std::size_t length) {
  Request request;
  request.kind = Kind::kRead;
  request.inode = handle;
  request.length = length;
  request.hasBuffer = buffer != nullptr;
  return Exchange(request, nullptr, buffer, length);
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
  return Exchange(request, buffer, nullptr, 0);
}

Result DeviceClose(std::uint64_t handle, int descriptor) {
  Channel channel;
  Request request;
  request.kind = Kind::kClose;
  NameCaller(&request);
  request.inode = handle;
  Response response;
  const bool announced = channel.descriptor() >= 0 &&
                         channel.Send(&request, sizeof(request)) == 0 &&
                         channel.Receive(&response, sizeof(response)) == 0;
  Real().close(descriptor);
  const char closed = 0;
  if (!announced || channel.Send(&closed, sizeof(closed)) != 0 ||
      channel.Receive(&response, sizeof(response)) != 0) {
    return {};
  }
  return {response.value, response.error};
}

}  // namespace zulisim::hooks
