#pragma once

#include <sys/types.h>

#include <cerrno>

#include "log/log_line.h"
#include "transport/cp_drem_session.h"
#include "transport/errno_policy.h"

namespace transport {

// A call on the device, and how the log names it.
struct RecoverableCall {
  DeviceCall call;
  const char* function;
  const char* word;
};

// Runs systemCall(descriptor) and, each time the device is lost, reconnects the session and runs it
// again without delay. Returns the call's result, or -1 with errno as the failing call or
// the last reconnect left it. Throws what Reconnect throws.
template <typename SystemCall>
ssize_t CallWithRecovery(CpDremSession& session, const RecoverableCall& name,
                         SystemCall systemCall) {
  using logging::kTraceLevel;
  for (int attempt = 1;; ++attempt) {
    const ssize_t result = systemCall(session.deviceFd);
    if (result != -1) {
      KALO_LOG_AS(kTraceLevel, name.function) << name.word << " call is successful.";
      return result;
    }
    const int error = errno;
    if (PolicyFor(name.call, error).remedy != Remedy::kReconnect) {
      KALO_LOG_AS(kTraceLevel, name.function)
          << "ZULI device is lost in " << name.word
          << " call and recovering failed with errorno = " << error;
      return -1;
    }
    KALO_LOG_AS(kTraceLevel, name.function)
        << "ZULI device is lost in " << name.word << " call with errorno = " << error
        << ". Trying to reconnect (attempt #" << attempt << ").";
    session.Reconnect();
    // The last reconnect is made although no call follows it, which is meant.
    if (attempt == kMaxRecoveries) return -1;
  }
}

}  // namespace transport
