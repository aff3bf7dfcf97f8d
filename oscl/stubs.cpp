#include "oscl/stubs.h"

#include "oscl/last_error.h"

namespace {

template <typename Result>
Result Success(Result result) {
  oscl::SetLastErrorCode(OSCL_ERROR_SUCCESS);
  return result;
}

// Contract: a value other than null, because callers treat null as a failure. It does not refer to
// an object.
HANDLE const kNoObject = reinterpret_cast<HANDLE>(1);

}  // namespace

HANDLE CreateEventEx(void*, const char*, uint32_t, uint32_t) { return Success(kNoObject); }

HANDLE RegisterWaitForSingleObjectEx(HANDLE, OSCL_WAIT_CALLBACK, void*, uint32_t, uint32_t) {
  return Success(kNoObject);
}

BOOL RegisterWaitForSingleObject(HANDLE* wait, HANDLE, OSCL_WAIT_CALLBACK, void*, uint32_t,
                                 uint32_t) {
  *wait = nullptr;
  return Success(1);
}

BOOL UnregisterWaitEx(HANDLE, HANDLE) { return Success(1); }

void NotifyRegistryChange(void) {}

uint32_t RegNotifyChangeKeyValue(HKEY, BOOL, uint32_t, HANDLE, BOOL) {
  return Success<uint32_t>(OSCL_ERROR_SUCCESS);
}

void DoxDebugBreak(const char*, ...) {}

void DoxPrintMessage(uint32_t, const char*, ...) {}

uint32_t ExpandEnvironmentStrings(const char*, char*, uint32_t) { return 0; }
