/* A C driver on a machine without the device. It uses only what the installed package provides. */
#undef NDEBUG
#include <assert.h>
#include <stddef.h>
#include <string.h>

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "oscl/bounded_string.h"
#include "oscl/last_error.h"
#include "oscl/registry.h"

int main(void) {
  KALO_STATE_INIT_PARAMS params = {KALO_FIRMWARE_API_32, 0};
  void* handle = NULL;
  unsigned char message[16] = {0};
  char text[4];
  assert(KaloStateInit(&params) == KALO_DLL_STATUS_SUCCESS);
  assert(KaloInit3(&handle) == KALO_DLL_STATUS_FAILURE);
  assert(StartIo(message, 16, message, 16) == KALO_DLL_STATUS_NOT_INITIALIZED);
  assert(StartIo3(NULL, message, 16, message, 16) == KALO_DLL_STATUS_INVALID_PARAMETER);
  assert(strcmp(gKaloDllState.apiErrorText, "KALO Exception 0x2 Invalid CP session handle") == 0);
  assert(gKaloDllState.lastErrorSource == KALO_ERROR_SOURCE_API3);
  assert(gKaloDllState.lastErrorContext == NULL);
  assert(gKaloDllState.firmwareApiVersion == KALO_FIRMWARE_API_32);
  assert(sizeof gKaloDllState == 3208);
  assert(strcpy_s(text, 3, "abc") == 1);
  assert(RegCloseKey_Linux(1) == OSCL_ERROR_SUCCESS);
  return 0;
}
