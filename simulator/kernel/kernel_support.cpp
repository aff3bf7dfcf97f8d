#include "simulator/kernel/kernel_support.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "common/format.h"
#include "common/text.h"
#include "simulator/program/program.h"

namespace zulisim {
namespace {

using Kind = KernelServer::Kind;

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

void CheckKernelServes(Kind kind) {
  if (!KernelServer::Built()) {
    throw std::runtime_error(
        std::string(
            "this zulisim was built without libfuse3, which --fuse, --cuse and "
            "--device fuse need; build it where the package libfuse3-dev is installed, or ") +
        kUsePreload);
  }
  const bool isFile = kind == Kind::kFile;
  const char* const node = isFile ? "/dev/fuse" : "/dev/cuse";
  const int control = open(node, O_RDWR | O_CLOEXEC);
  if (control >= 0) {
    close(control);
    return;
  }
  const std::string remedy =
      errno == EACCES || errno == EPERM
          ? "run zulisim as root"
          : common::Format("load the kernel module with 'modprobe {}'", isFile ? "fuse" : "cuse");
  throw std::runtime_error(common::Format("cannot open {}: {}; {}, or {}", node,
                                          std::strerror(errno), remedy, kUsePreload));
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

void CheckKernelCarries(const Scenario& scenario, Kind kind) {
  const std::size_t longest = KernelServer::LongestMessage(kind);
  for (const Client& client : scenario.clients) {
    if (client.maxMessageLength <= longest) continue;
    throw std::invalid_argument(common::Format(
        "the maximum message length of {}, {}, is above {}: the kernel would split such a message; "
        "choose a smaller max or --device preload",
        common::Printable(client.name), client.maxMessageLength, longest));
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
