#include "api/kalo_dll_state.h"

#include <pthread.h>

#include <cstring>

#include "api/error_record.h"
#include "api/kalo_dll.h"
#include "log/log_line.h"
#include "oscl/kept_stores.h"

#ifdef KALODLL_CARRIES_LIBSTDCXX
namespace __gnu_cxx {
// Frees the memory that libstdc++ reserves for exceptions.
void __freeres();
}  // namespace __gnu_cxx
#endif

#ifdef KALODLL_CARRIES_LIBCXX
// Replaces a function of libc++abi that keeps a thread's exceptions under a thread-specific key or
// in emulated thread-local storage. Neither is freed at unload, and a process has few keys. True
// thread-local storage is freed with the library.
extern "C" {
struct ThreadExceptions {
  void* caught;
  unsigned int uncaught;
};
ThreadExceptions* __cxa_get_globals() {
  static thread_local ThreadExceptions exceptions;
  return &exceptions;
}
ThreadExceptions* __cxa_get_globals_fast() { return __cxa_get_globals(); }
}
#endif

// The first of the library's two static objects, whatever the link order.
__attribute__((init_priority(1001))) KaloDllState gKaloDllState;

namespace {

// Runs in the child of a fork, where the thread that held the lock may not exist.
void FreeLock() { pthread_mutex_init(&gKaloDllState.stateLock, nullptr); }

}  // namespace

KaloDllState::KaloDllState()
    : kaloInterfaceVersion(0),
      // Does not set fenuInterfaceVersion, which is 0 in static storage.
      provisioningSession(nullptr),
      kaloSessionA(nullptr),
      kaloSessionB(nullptr),
      fenuSession(nullptr),
      apiErrorCode(0),
      kaloErrorCode(0),
      fenuErrorCode(0),
      lastErrorSource(0),
      lastErrorContext(kNoErrorContext),
      lastErrorProcessId(kNoErrorMarker),
      firmwareApiVersion(0),
      stateInitFlag(false) {
  std::memset(apiErrorText, 0, sizeof apiErrorText);
  std::memset(kaloErrorText, 0, sizeof kaloErrorText);
  std::memset(fenuErrorText, 0, sizeof fenuErrorText);
  InitializeCriticalSection(&stateLock);
  kaloRefCountA = 0;
  kaloRefCountB = 0;
  fenuRefCount = 0;
  sessionBShared = false;
  // A driver may create its own state.
  if (this == &gKaloDllState) pthread_atfork(nullptr, nullptr, FreeLock);
}

KaloDllState::~KaloDllState() {
  DeleteCriticalSection(&stateLock);
  kaloRefCountA = 0;
  kaloRefCountB = 0;
  fenuRefCount = 0;
  sessionBShared = false;
  oscl::KeepStores(this);
#ifdef KALODLL_CARRIES_LIBSTDCXX
  // The library's own C++ runtime is unloaded with it and would leak this memory.
  if (this == &gKaloDllState) __gnu_cxx::__freeres();
#endif
}

// Not declared in a header, because a driver may define its own DllMain with another linkage.
int32_t DllMain(void*, unsigned int, void*) { return 1; }

KALO_DLL_STATUS KaloStateInit(KALO_STATE_INIT_PARAMS* params) {
  KALO_LOG(logging::kOrdinaryLevel) << "Executing call to KaloStateInit() API...";
  if (params != nullptr) {
    gKaloDllState.firmwareApiVersion = params->firmwareApiVersion;
    gKaloDllState.stateInitFlag = params->stateInitOption == 1;
  }
  // Contract: the text names another call.
  KALO_LOG(logging::kOrdinaryLevel) << "Call to KaloInit() API completed successfully.";
  return KALO_DLL_STATUS_SUCCESS;
}
