#pragma once

#include <sys/types.h>

#include <cerrno>

#include "log/log_line.h"
#include "transport/cp_drem_session.h"

namespace transport {

// Calls tried, and reconnects made, at most.
constexpr int kMaxRecoveries = 5;

// How the log names an operation.
struct OperationName {
  const char* function;
  const char* call;
};

// Runs systemCall(descriptor) and, each time the device is lost (ENODEV), reconnects the session and
// runs it again without delay. Returns the call's result, or -1 with errno as the failing call or
// the last reconnect left it. Throws what Reconnect throws.
template <typename SystemCall>
ssize_t CallWithRecovery(CpDremSession& session, OperationName name, SystemCall systemCall) {
  using logging::kTraceLevel;
  for (int attempt = 1;; ++attempt) {
    const ssize_t result = systemCall(session.deviceFd);
    if (result != -1) {
      KALO_LOG_AS(kTraceLevel, name.function) << name.call << " call is successful.";
      return result;
    }
    const int error = errno;
    if (error != ENODEV) {
      KALO_LOG_AS(kTraceLevel, name.function)
          << "ZULI device is lost in " << name.call
          << " call and recovering failed with errorno = " << error;
      return -1;
    }
    KALO_LOG_AS(kTraceLevel, name.function)
        << "ZULI device is lost in " << name.call << " call with errorno = " << error
        << ". Trying to reconnect (attempt #" << attempt << ").";
    session.Reconnect();
    // The last reconnect is made although no call follows it, which is meant.
    if (attempt == kMaxRecoveries) return -1;
  }
}

}  // namespace transport
