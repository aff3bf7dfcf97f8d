#include "simulator/kernel/kernel_support.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "common/text.h"

namespace zulisim {
namespace {

using Kind = KernelServer::Kind;

const char* ControlNode(Kind kind) { return kind == Kind::kFile ? "/dev/fuse" : "/dev/cuse"; }

// 0 or an errno.
int TryOpen(const char* path) {
  const int descriptor = open(path, O_RDWR | O_CLOEXEC);
  if (descriptor < 0) return errno;
  close(descriptor);
  return 0;
}

// The kernel takes these answers to an open or an ioctl for messages to itself: it tries again, or
// never asks again.
bool IsKernelsOwn(Operation operation, int error) {
  if (operation == Operation::kOpen) return error == ENOSYS || error == ESTALE || error == ECHILD;
  return operation == Operation::kIoctl && error == ENOSYS;
}

void CheckErrno(Operation operation, int error) {
  if (!IsKernelsOwn(operation, error)) return;
  throw std::invalid_argument(std::string("the kernel does not pass ") + ErrnoName(error) + " of " +
                              OperationName(operation) +
                              " on to a program; choose another errno, or --device preload");
}

void CheckFault(const Fault& fault) {
  if (const auto* error = std::get_if<ErrnoFault>(&fault.effect)) {
    CheckErrno(fault.operation, error->error);
  } else if (const auto* loss = std::get_if<DeviceLoss>(&fault.effect)) {
    if (loss->failingOpens > 0) CheckErrno(Operation::kOpen, loss->openError);
  }
}

}  // namespace

std::string OtherWays(Kind kind) {
  std::string ways = "'zulisim run --device preload' serves dynamically linked programs";
  if (kind != Kind::kFile && TryOpen(ControlNode(Kind::kFile)) == 0) {
    ways += ", and 'zulisim serve --fuse' and 'zulisim run --device fuse' any program";
  }
  if (kind != Kind::kCharacterDevice && TryOpen(ControlNode(Kind::kCharacterDevice)) == 0) {
    ways += ", and 'zulisim serve --cuse' any program";
  }
  return "what works here: " + ways;
}

std::string MissingSupport(Kind kind) {
  const std::string node = ControlNode(kind);
  const std::string module = node.substr(sizeof("/dev/") - 1);
  const int error = TryOpen(node.c_str());
  std::string reason = node + " cannot be opened: " + std::strerror(error);
  if (error == ENOENT || error == ENODEV || error == ENXIO) {
    reason = "there is no " + node + ": load the kernel's module ('modprobe " + module +
             "'), or give the container that device";
  } else if (error == EACCES || error == EPERM) {
    reason += "; root may open it";
  }
  return reason + "; " + OtherWays(kind);
}

void CheckKernelServes(Kind kind) {
  if (!KernelServer::Built()) {
    throw std::runtime_error(
        "this zulisim was built without libfuse3 and serves nothing through "
        "the kernel: build it where libfuse3-dev is, or use 'zulisim run "
        "--device preload', which serves dynamically linked programs");
  }
  if (TryOpen(ControlNode(kind)) != 0) throw std::runtime_error(MissingSupport(kind));
}

void CheckKernelCarries(const Scenario& scenario, Kind kind) {
  const std::size_t longest = KernelServer::LongestMessage(kind);
  for (const Client& client : scenario.clients) {
    if (client.maxMessageLength <= longest) continue;
    throw std::invalid_argument(common::Printable(client.name) + "'s maximum message length of " +
                                std::to_string(client.maxMessageLength) + " is above " +
                                std::to_string(longest) +
                                ": the kernel would split a message of that length");
  }
  for (const Fault& fault : scenario.faults) CheckFault(fault);
}

}  // namespace zulisim
