#include "simulator/kernel/kernel_support.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "common/format.h"
#include "common/text.h"
#include "simulator/kernel/kernel_server.h"
#include "simulator/program/program.h"

namespace zulisim {
namespace {

constexpr const char* kUsePreload = "use 'zulisim run --device preload', which works without it";

// Throws std::invalid_argument for an errno that the kernel handles itself: it repeats the request,
// or never sends that kind again.
void CheckErrno(Operation operation, int error) {
  const bool isReserved = operation == Operation::kOpen
                              ? error == ENOSYS || error == ESTALE || error == ECHILD
                              : operation == Operation::kIoctl && error == ENOSYS;
  if (!isReserved) return;
  throw std::invalid_argument(common::Format(
      "the kernel does not pass {} of {} on to a program; choose another errno or --device preload",
      ErrnoName(error), OperationName(operation)));
}

}  // namespace

void CheckKernelServes() {
  if (!KernelServer::Built()) {
    throw std::runtime_error(
        std::string(
            "this zulisim was built without libfuse3, which 'zulisim serve' and --device fuse "
            "need; build it where the package libfuse3-dev is installed, or ") +
        kUsePreload);
  }
  const int control = open("/dev/fuse", O_RDWR | O_CLOEXEC);
  if (control >= 0) {
    close(control);
    return;
  }
  throw std::runtime_error(common::Format(
      "cannot open /dev/fuse: {}; {}, or {}", std::strerror(errno),
      errno == EACCES || errno == EPERM ? "run zulisim as root"
                                        : "load the kernel module with 'modprobe fuse'",
      kUsePreload));
}

void CheckCanMount() {
  if (geteuid() == 0) return;
  if (access("/etc/mtab", R_OK) != 0) {
    throw std::runtime_error(
        "cannot mount without root: fusermount3 could not unmount again without /etc/mtab; create "
        "it with 'ln -s /proc/self/mounts /etc/mtab' as root");
  }
  try {
    FindProgram("fusermount3");
  } catch (const ProgramError&) {
    throw std::runtime_error(
        "cannot mount without root or the program fusermount3; install the package fuse3");
  }
}

void CheckKernelCarries(const Scenario& scenario) {
  for (const Client& client : scenario.clients) {
    if (client.maxMessageLength <= KernelServer::kLongestUnsplit) continue;
    throw std::invalid_argument(common::Format(
        "the maximum message length of {}, {}, is above {}: the kernel would split such a message; "
        "choose a smaller max or --device preload",
        common::Printable(client.name), client.maxMessageLength, KernelServer::kLongestUnsplit));
  }
  for (const Fault& fault : scenario.faults) {
    if (const auto* error = std::get_if<ErrnoFault>(&fault.effect)) {
      CheckErrno(fault.operation, error->error);
    } else if (const auto* loss = std::get_if<DeviceLoss>(&fault.effect)) {
      if (loss->failingOpens > 0) CheckErrno(Operation::kOpen, loss->openError);
    }
  }
}

}  // namespace zulisim
