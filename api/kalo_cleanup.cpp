#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "api/session_field.h"
#include "log/log_line.h"

using logging::kTraceLevel;

namespace {

// Lowers the count of a session that is there; at zero closes it and clears the field. True when it
// was the last reference, and only then is `status` replaced.
bool DropReference(SessionField& field, uint32_t& count, KALO_DLL_STATUS& status) {
  if (field.Get() == nullptr || count == 0 || --count != 0) return false;
  status = SessionCleanup(field.Live());
  field.Set(nullptr);
  return true;
}

}  // namespace

KALO_DLL_STATUS KaloCleanup(void) {
  KALO_LOG_TAGGED(kTraceLevel, 830) << "Executing call to KaloCleanup() API...";
  KALO_LOG_TAGGED(kTraceLevel, 832)
      << "KALO DREM Ref Cnt A " << std::hex << gKaloDllState.kaloRefCountA;
  KALO_DLL_STATUS status = KALO_DLL_STATUS_SUCCESS;
  if (DropReference(kaloFieldA, gKaloDllState.kaloRefCountA, status)) {
    gKaloDllState.sessionBShared = false;
  }
  KALO_LOG_TAGGED(kTraceLevel, 848)
      << "KALO DREM Ref Cnt A " << std::hex << gKaloDllState.kaloRefCountA;
  KALO_LOG_TAGGED(kTraceLevel, 850)
      << "KALO DREM Ref Cnt B " << std::hex << gKaloDllState.kaloRefCountB;
  // The status of session B replaces that of A, a failure included, which is meant.
  DropReference(kaloFieldB, gKaloDllState.kaloRefCountB, status);
  KALO_LOG_TAGGED(kTraceLevel, 862)
      << "KALO DREM Ref Cnt B " << std::hex << gKaloDllState.kaloRefCountB;
  if (status != KALO_DLL_STATUS_SUCCESS) {
    KALO_LOG_TAGGED(kTraceLevel, 870) << "Call to KaloCleanup() API failed.";
    return status;
  }
  KALO_LOG_TAGGED(kTraceLevel, 866) << "Call to KaloCleanup() API completed successfully.";
  return KALO_DLL_STATUS_SUCCESS;
}
