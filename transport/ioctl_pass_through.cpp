#include <sys/ioctl.h>

#include <cerrno>
#include <stdexcept>

#include "log/log_line.h"
#include "transport/cp_drem_session.h"
#include "transport/device_recovery.h"
#include "transport/errno_policy.h"

using logging::kTraceLevel;
using transport::DeviceCall;
using transport::PolicyFor;

namespace {

constexpr char kFunction[] = "SendIoctlToZuli";

void ExplainFailure(int error) {
  const auto& explanation = PolicyFor(DeviceCall::kIoctl, error).explanation;
  if (explanation[0] == nullptr) {
    KALO_LOG_AS(kTraceLevel, kFunction) << "Error sending IOCTL to ZULI. errno = " << error << '.';
  }
  for (const char* line : explanation) {
    if (line != nullptr) KALO_LOG_AS(kTraceLevel, kFunction) << line;
  }
}

}  // namespace

void CpDremSession::SendIoctlToZuli(int request, void* argp) {
  // Not sign-extended to the width of the system call's argument.
  const auto number = static_cast<unsigned int>(request);
  const ssize_t result = transport::CallWithRecovery(
      *this, {DeviceCall::kIoctl, __func__, "IOCTL"},
      [=](int descriptor) -> ssize_t { return ioctl(descriptor, number, argp); });
  if (result != -1) return;
  // Read again: after five recoveries it is what the last reconnect left, which is meant.
  const int error = errno;
  ExplainFailure(error);
  throw std::runtime_error(PolicyFor(DeviceCall::kIoctl, error).thrown);
}

void CpDremSession::IoctlAllocWrapper(unsigned char*, unsigned int, unsigned char*) {}

void CpDremSession::IoctlFreeWrapper(unsigned char*, unsigned int) {}
