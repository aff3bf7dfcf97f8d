#include "api/kalo_dll_state.h"

#include <cstring>

#include "api/error_record.h"
#include "api/kalo_dll.h"
#include "transport/session_registry.h"

#ifdef KALODLL_CARRIES_LIBSTDCXX
namespace __gnu_cxx {
// Frees what libstdc++ has put aside for exceptions when memory runs out.
void __freeres();
}  // namespace __gnu_cxx
#endif

// The first of the library's two static objects to be built, whatever the link order.
__attribute__((init_priority(1001))) KaloDllState gKaloDllState;

KaloDllState::KaloDllState()
    : kaloInterfaceVersion(0),
      // fenuInterfaceVersion keeps the zero of static storage.
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
}

KaloDllState::~KaloDllState() {
  DeleteCriticalSection(&stateLock);
  kaloRefCountA = 0;
  kaloRefCountB = 0;
  fenuRefCount = 0;
  sessionBShared = false;
  // A driver may have a state of its own, whose end is not the library's.
  if (this != &gKaloDllState) return;
  session_registry::Release();
#ifdef KALODLL_CARRIES_LIBSTDCXX
  // The carried copy is unloaded with the library and would lose it.
  __gnu_cxx::__freeres();
#endif
}

int32_t DllMain(void*, unsigned int, void*) { return 1; }
