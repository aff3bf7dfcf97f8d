#include "simulator/in_process/in_process_device.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>

#include "simulator/hooks/device.h"
#include "simulator/hooks/libc.h"
#include "simulator/hooks/paths.h"

namespace zulisim {
namespace {

// The engine and redirects of one InProcessDevice.
struct Service {
  Engine* engine;
  std::uint64_t generation;
  InProcessDevice::Redirects redirects;
};

constexpr int kGenerationShift = 40;

std::atomic<const Service*> current{nullptr};

// Operations on the device hold it shared; the constructor and destructor hold it exclusively.
std::shared_mutex& ServiceMutex() {
  static auto* mutex = new std::shared_mutex;
  return *mutex;
}

// Services are never freed, because a call without the lock may still read a redirect.
std::vector<std::unique_ptr<Service>>& Services() {
  static auto* services = new std::vector<std::unique_ptr<Service>>;
  return *services;
}

// Calls `operation` of the engine that returned `handle`, if that engine still serves the device.
// Otherwise returns `otherwise`.
template <typename... Parameters, typename... Arguments>
Result CallEngine(Result (Device::*operation)(std::uint64_t, Parameters...), Result otherwise,
                  std::uint64_t handle, Arguments... arguments) {
  std::shared_lock<std::shared_mutex> lock(ServiceMutex());
  const Service* service = current.load();
  if (service == nullptr || service->generation != handle >> kGenerationShift) return otherwise;
  return (service->engine->*operation)(handle & ((1ULL << kGenerationShift) - 1), arguments...);
}

constexpr Result kLost{-1, ENODEV};

}  // namespace

InProcessDevice::InProcessDevice(Engine& engine, Redirects redirects) {
  std::lock_guard<std::shared_mutex> lock(ServiceMutex());
  if (current.load() != nullptr) {
    throw std::logic_error("/dev/zuli is served in this process already; end that first");
  }
  Services().push_back(
      std::make_unique<Service>(Service{&engine, Services().size() + 1, std::move(redirects)}));
  current.store(Services().back().get());
}

InProcessDevice::~InProcessDevice() {
  std::lock_guard<std::shared_mutex> lock(ServiceMutex());
  current.store(nullptr);
}

namespace hooks {

bool DeviceServed() { return current.load(std::memory_order_acquire) != nullptr; }

const char* RedirectedPath(const char* path) {
  const Service* service = current.load(std::memory_order_acquire);
  if (service == nullptr) return nullptr;
  for (const auto& [from, to] : service->redirects) {
    if (SamePath(path, from.c_str())) return to.c_str();
  }
  return nullptr;
}

OpenedDevice DeviceOpen(int flags, unsigned mode) {
  std::shared_lock<std::shared_mutex> lock(ServiceMutex());
  const Service* service = current.load();
  if (service == nullptr) return {-1, 0, ENODEV};
  // An unconnected socket reserves the number, and a call that bypasses the hooks does no harm.
  // After shutdown, it polls as readable.
  const int closeOnExec = (flags & O_CLOEXEC) != 0 ? SOCK_CLOEXEC : 0;
  const int descriptor = socket(AF_UNIX, SOCK_DGRAM | closeOnExec, 0);
  if (descriptor < 0) return {-1, 0, errno};
  shutdown(descriptor, SHUT_RD);
  const Result result = service->engine->Open(flags, mode, descriptor);
  if (result.value == -1) {
    Real_close(descriptor);
    return {-1, 0, result.error};
  }
  const auto connection = static_cast<std::uint64_t>(result.value);
  return {descriptor, service->generation << kGenerationShift | connection, 0};
}

Result DeviceIoctl(std::uint64_t handle, std::uint32_t request, void* argument) {
  return CallEngine(&Device::Ioctl, kLost, handle, request, argument);
}

Result DeviceRead(std::uint64_t handle, void* buffer, std::size_t length, bool nonBlocking) {
  return CallEngine(&Device::Read, kLost, handle, buffer, length, nonBlocking);
}

Result DeviceWrite(std::uint64_t handle, const void* buffer, std::size_t length) {
  return CallEngine(&Device::Write, kLost, handle, buffer, length);
}

Result DeviceClose(std::uint64_t handle, int descriptor) {
  const Result result = CallEngine(&Device::Close, {}, handle, CloseReason::kProgramClosed);
  Real_close(descriptor);
  return result;
}

}  // namespace hooks
}  // namespace zulisim
