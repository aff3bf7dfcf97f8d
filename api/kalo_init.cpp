#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "api/session_field.h"
#include "log/log_line.h"

using logging::kTraceLevel;

KALO_DLL_STATUS KaloInit(void) {
  KALO_LOG_TAGGED(kTraceLevel, 802) << "Executing call to KaloInit() API...";
  // The field as it stands, the address of a destroyed session included, and no count is raised:
  // both are meant.
  if (kaloFieldA.Get() != nullptr) {
    KALO_LOG_TAGGED(kTraceLevel, 820) << "Call to KaloInit() API completed successfully.";
    return KALO_DLL_STATUS_SUCCESS;
  }
  const KALO_DLL_STATUS status = KaloInit3(reinterpret_cast<void**>(&gKaloDllState.kaloSessionA));
  if (status != KALO_DLL_STATUS_SUCCESS) {
    KALO_LOG_TAGGED(kTraceLevel, 814) << "Call to KaloInit() API failed.";
    return status;
  }
  KALO_LOG_TAGGED(kTraceLevel, 810) << "Call to KaloInit() API completed successfully.";
  return KALO_DLL_STATUS_SUCCESS;
}
