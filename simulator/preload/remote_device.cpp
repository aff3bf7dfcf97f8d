// Implements the device for the preload library: sends every operation to the server in `zulisim`,
// as protocol.h describes. Built without a C++ runtime library, so that any program can load it.

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "simulator/hooks/descriptors.h"
#include "simulator/hooks/device.h"
#include "simulator/hooks/libc.h"
#include "simulator/hooks/paths.h"
#include "simulator/preload/channel.h"

namespace zulisim::hooks {
namespace {

using protocol::Kind;
using protocol::Message;

// The settings that `zulisim` passes in the environment.
struct Settings {
  bool served = false;
  char log[PATH_MAX] = "";       // empty if the path is not redirected
  char registry[PATH_MAX] = "";  //
};

Settings settings;
std::atomic<bool> areRead{false};

void CopyVariable(const char* name, char (&copy)[PATH_MAX]) {
  const char* value = getenv(name);
  if (value != nullptr && strlen(value) < PATH_MAX) strcpy(copy, value);
}

// Several threads can run this only before main, and then they write the same values. libc may call
// a hook before it has set up the environment. Such a call finds no device, and the next call reads
// the environment again.
const Settings& GetSettings() {
  if (!areRead.load(std::memory_order_acquire) && environ != nullptr) {
    settings.served = SetServer(getenv(protocol::kSocketVariable));
    CopyVariable(protocol::kLogVariable, settings.log);
    CopyVariable(protocol::kRegistryVariable, settings.registry);
    areRead.store(true, std::memory_order_release);
  }
  return settings;
}

// Makes the library in this process write its detailed log lines too. Called each time the library
// opens its log, because the library then resets its threshold.
void RaiseLogLevel() {
  constexpr std::int32_t kTraceLevel = 100;
  // The driver may have loaded the library with RTLD_LOCAL, which hides its names from
  // dlsym(RTLD_DEFAULT).
  void* const library = dlopen("libkalodll.so", RTLD_LAZY | RTLD_NOLOAD);
  if (library == nullptr) return;
  // Logger::logBase, whose first member is the threshold.
  if (void* const level = dlsym(library, "_ZN6Logger7logBaseE")) {
    __atomic_store_n(static_cast<std::int32_t*>(level), kTraceLevel, __ATOMIC_RELAXED);
  }
  dlclose(library);
}

Message MessageOf(Kind kind, std::uint64_t connection = 0) {
  Message message;
  message.kind = kind;
  message.connection = connection;
  message.process = getpid();
  message.thread = gettid();
  message.processor = sched_getcpu();
  return message;
}

// Finds the device descriptors that this process inherited through exec.
void MarkInheritedDescriptors() {
  DIR* folder = opendir("/proc/self/fd");
  if (folder == nullptr) return;
  while (const struct dirent* entry = readdir(folder)) {
    const int descriptor = atoi(entry->d_name);
    Message response;
    if (entry->d_name[0] != '.' && IsConnected(descriptor) &&
        protocol::Receive(descriptor, &response, nullptr, 0, MSG_PEEK) == 0) {
      MarkDescriptor(descriptor, static_cast<std::uint64_t>(response.value), response.flags);
    }
  }
  closedir(folder);
}

// Runs before SharesMemory() becomes false, so this exchange keeps no channel: most programs never
// open the device.
__attribute__((constructor(102))) void AttachAtStart() {
  if (!DeviceServed()) return;
  const int savedErrno = errno;
  MarkInheritedDescriptors();
  Exchange(MessageOf(Kind::kLoaded));
  errno = savedErrno;
}

}  // namespace

bool DeviceServed() { return GetSettings().served; }

const char* RedirectedPath(const char* path) {
  const Settings& known = GetSettings();
  if (known.registry[0] != '\0' && SamePath(path, "/etc/vrel_registry.txt")) return known.registry;
  if (known.log[0] == '\0' || !SamePath(path, "/data/Marvoleth.log")) return nullptr;
  if (getenv(protocol::kDetailVariable) != nullptr) RaiseLogLevel();
  return known.log;
}

OpenedDevice DeviceOpen(int flags, unsigned mode) {
  // Reserves a channel for the later close, in case this open takes the last free descriptor.
  const Result reached = Exchange(MessageOf(Kind::kLoaded));
  if (reached.value == -1) return {-1, 0, reached.error};
  const int descriptor = Connect();
  if (descriptor < 0) return {-1, 0, errno};
  Message message = MessageOf(Kind::kOpen);
  message.flags = flags;
  message.mode = mode;
  message.descriptor = descriptor;
  protocol::Send(descriptor, message, nullptr);
  const bool answered = protocol::Receive(descriptor, &message, nullptr, 0, MSG_PEEK) == 0;
  if (!answered || message.value == -1) {
    Real_close(descriptor);
    return {-1, 0, answered ? message.error : ENODEV};
  }
  if ((flags & O_CLOEXEC) == 0) Real_fcntl(descriptor, F_SETFD, nullptr);
  return {descriptor, static_cast<std::uint64_t>(message.value), 0};
}

Result DeviceIoctl(std::uint64_t handle, std::uint32_t request, void* argument) {
  Message message = MessageOf(Kind::kIoctl, handle);
  message.request = request;
  if (argument != nullptr) message.payload = static_cast<std::uint32_t>(IoctlSize(request));
  return Exchange(message, argument, argument, message.payload);
}

Result DeviceRead(std::uint64_t handle, void* buffer, std::size_t length, bool nonBlocking) {
  // The engine removes a reply when it is read, so check first that the buffer is writable: copy
  // its first byte onto itself.
  const struct iovec first { buffer, std::min(length, std::size_t{1}) };
  if (process_vm_readv(getpid(), &first, 1, &first, 1, 0) < 0 && errno == EFAULT)
    return {-1, EFAULT};
  Message message = MessageOf(Kind::kRead, handle);
  message.length = length;
  message.flags = nonBlocking ? O_NONBLOCK : 0;
  return Exchange(message, nullptr, buffer, std::min(length, kLongestMessage));
}

Result DeviceWrite(std::uint64_t handle, const void* buffer, std::size_t length) {
  Message message = MessageOf(Kind::kWrite, handle);
  message.length = length;
  message.payload = static_cast<std::uint32_t>(std::min(length, kLongestMessage));
  return Exchange(message, buffer);
}

Result DeviceClose(std::uint64_t handle, int descriptor) {
  const bool begun = Exchange(MessageOf(Kind::kClosing, handle)).value == 0;
  Real_close(descriptor);
  return begun ? Exchange(MessageOf(Kind::kClosed, handle)) : Result{};
}

}  // namespace zulisim::hooks
