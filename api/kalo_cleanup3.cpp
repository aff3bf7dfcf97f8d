#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "api/session_field.h"
#include "log/log_line.h"

using logging::kOrdinaryLevel;

namespace {

constexpr char kFunction[] = "KaloCleanup3";

// Drops one reference when the handle is this field's; true when it was the last. The field keeps
// the address, which is meant: KaloInit3 goes by the counts alone.
bool DropReference(const void* handle, SessionField& field, uint32_t& count,
                   KALO_DLL_STATUS& result) {
  if (handle != field.Get() || count == 0 || --count != 0) return false;
  result = SessionCleanup(field.Live());
  return true;
}

void LogCountA() {
  KALO_LOG_AS(kOrdinaryLevel, kFunction)
      << "KALO DREM Ref Cnt A " << std::hex << gKaloDllState.kaloRefCountA;
}

void LogCountB() {
  KALO_LOG_AS(kOrdinaryLevel, kFunction)
      << "KALO DREM Ref Cnt B " << std::hex << gKaloDllState.kaloRefCountB;
}

}  // namespace

KALO_DLL_STATUS KaloCleanup3(void* handle) {
  KALO_LOG(kOrdinaryLevel) << "Executing call to KaloCleanup3() API...";
  LogCountA();
  KALO_DLL_STATUS result = KALO_DLL_STATUS_SUCCESS;
  if (DropReference(handle, kaloFieldA, gKaloDllState.kaloRefCountA, result)) {
    gKaloDllState.sessionBShared = false;
  }
  LogCountA();
  LogCountB();
  DropReference(handle, kaloFieldB, gKaloDllState.kaloRefCountB, result);
  LogCountB();
  if (result != KALO_DLL_STATUS_SUCCESS) {
    KALO_LOG(kOrdinaryLevel) << "Call to KaloCleanup3() API failed.";
  } else {
    KALO_LOG(kOrdinaryLevel) << "Call to KaloCleanup3() API completed successfully.";
  }
  return result;
}
