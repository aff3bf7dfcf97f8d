#include <sys/ioctl.h>

#include <cerrno>
#include <stdexcept>

#include "log/log_line.h"
#include "transport/cp_drem_session.h"
#include "transport/device_recovery.h"

using logging::kTraceLevel;

namespace {

constexpr char kFunction[] = "SendIoctlToZuli";

void ExplainFailure(int error) {
  switch (error) {
    case EBADF:
      KALO_LOG_AS(kTraceLevel, kFunction) << "d is not a valid descriptor.";
      break;
    case EFAULT:
      KALO_LOG_AS(kTraceLevel, kFunction) << "argp references an inaccessible memory area.";
      break;
    case EINVAL:
      KALO_LOG_AS(kTraceLevel, kFunction) << "Request or argp is not valid.";
      break;
    case ENOTTY:
      KALO_LOG_AS(kTraceLevel, kFunction)
          << "d is not associated with a character special device.";
      KALO_LOG_AS(kTraceLevel, kFunction)
          << "The specified request does not apply to the kind of object that the descriptor d "
             "references.";
      break;
    default:
      KALO_LOG_AS(kTraceLevel, kFunction) << "Error sending IOCTL to ZULI. errno = " << error << '.';
  }
}

}  // namespace

void CpDremSession::SendIoctlToZuli(int request, void* argp) {
  // Not sign-extended to the width of the system call's argument.
  const auto number = static_cast<unsigned int>(request);
  const ssize_t result = transport::CallWithRecovery(
      *this, {__func__, "IOCTL"},
      [=](int descriptor) -> ssize_t { return ioctl(descriptor, number, argp); });
  if (result != -1) return;
  // Read again: after five recoveries it is what the last reconnect left, which is meant.
  ExplainFailure(errno);
  throw std::runtime_error("Error sending IOCTL to ZULI.");
}

void CpDremSession::IoctlAllocWrapper(unsigned char*, unsigned int, unsigned char*) {}

void CpDremSession::IoctlFreeWrapper(unsigned char*, unsigned int) {}
