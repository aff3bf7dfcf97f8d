#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "log/log_line.h"

using logging::kOrdinaryLevel;

KALO_DLL_STATUS KaloStateInit(KALO_STATE_INIT_PARAMS* params) {
  KALO_LOG(kOrdinaryLevel) << "Executing call to KaloStateInit() API...";
  if (params != nullptr) {
    gKaloDllState.firmwareApiVersion = params->firmwareApiVersion;
    gKaloDllState.stateInitFlag = params->stateInitOption == 1;
  }
  // The name of another call, which is meant.
  KALO_LOG(kOrdinaryLevel) << "Call to KaloInit() API completed successfully.";
  return KALO_DLL_STATUS_SUCCESS;
}
