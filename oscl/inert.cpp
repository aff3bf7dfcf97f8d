#include "oscl/inert.h"

#include "oscl/last_error.h"

namespace {

// Not null, which callers take for a failure, and no object either.
HANDLE const kInertHandle = reinterpret_cast<HANDLE>(1);

}  // namespace

HANDLE CreateEventEx(void*, const char*, uint32_t, uint32_t) { return kInertHandle; }

HANDLE RegisterWaitForSingleObjectEx(HANDLE, OSCL_WAIT_CALLBACK, void*, uint32_t, uint32_t) {
  return kInertHandle;
}

BOOL RegisterWaitForSingleObject(HANDLE* wait, HANDLE, OSCL_WAIT_CALLBACK, void*, uint32_t,
                                 uint32_t) {
  *wait = nullptr;
  return 1;
}

BOOL UnregisterWaitEx(HANDLE, HANDLE) { return 1; }

void NotifyRegistryChange(void) {}

uint32_t RegNotifyChangeKeyValue(HKEY, BOOL, uint32_t, HANDLE, BOOL) {
  oscl::SetLastErrorCode(OSCL_ERROR_SUCCESS);
  return OSCL_ERROR_SUCCESS;
}

void DoxDebugBreak(const char*, ...) {}

void DoxPrintMessage(uint32_t, const char*, ...) {}

uint32_t ExpandEnvironmentStrings(const char*, char*, uint32_t) { return 0; }
