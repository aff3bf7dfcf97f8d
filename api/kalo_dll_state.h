#pragma once

/* All that the library keeps between calls, for C and C++ drivers. */

#include <stddef.h>
#include <stdint.h>

#include "oscl/critical_section.h"

#define KALO_ERROR_TEXT_SIZE 1024

/* There is one state, gKaloDllState, from load to unload, and its layout is part of the binary
 * interface. Only KaloInit3 takes stateLock; everything else reads and writes the fields without
 * it, so that the driver serialises initialisation and cleanup. Unload destroys the lock: a
 * KaloInit3 after it returns 0 or 1 with glibc, and ends the process on Android. */
#ifdef __cplusplus
class ClientSession;
class KaloDllState {
 public:
  KaloDllState();
  // Leaves sessions that are still referenced alone.
  ~KaloDllState();
  KaloDllState(const KaloDllState&) = delete;
  KaloDllState& operator=(const KaloDllState&) = delete;

  static constexpr size_t kErrorTextSize = KALO_ERROR_TEXT_SIZE;

#else
#include <stdbool.h>
typedef struct ClientSession ClientSession;
typedef struct KaloDllState {
#endif
  /* 0: none yet, 3: version 3. Never reset. */
  uint32_t kaloInterfaceVersion;
  /* 3 while FenuInit3 owns the FENU side. */
  uint32_t fenuInterfaceVersion;
  CRITICAL_SECTION stateLock;
  /* Never set by the library. */
  ClientSession* provisioningSession;
  /* Owned while their counts are not 0. Not cleared by the version-3 cleanups. An address that the
   * driver writes here itself counts as a live session, unless it is the very one of a session that
   * the library has destroyed and still keeps in this field. */
  ClientSession* kaloSessionA;
  ClientSession* kaloSessionB;
  ClientSession* fenuSession;
  /* The last error of each source: text with its NUL, and status or 0xFFFFFFFF. */
  char apiErrorText[KALO_ERROR_TEXT_SIZE];
  uint32_t apiErrorCode;
  char kaloErrorText[KALO_ERROR_TEXT_SIZE];
  uint32_t kaloErrorCode;
  char fenuErrorText[KALO_ERROR_TEXT_SIZE];
  uint32_t fenuErrorCode;
  uint32_t lastErrorSource;
  /* Of the last version-3 error: the handle as it was passed to StartIoEx3, null included;
   * 0xDEADBEEF for an initialisation, or before any error. */
  void* lastErrorContext;
  uint32_t lastErrorProcessId;
  uint32_t firmwareApiVersion;
  bool stateInitFlag;
  /* Handles that are out. */
  uint32_t kaloRefCountA;
  uint32_t kaloRefCountB;
  uint32_t fenuRefCount;
  /* stateInitFlag as it was when kaloSessionA was opened. */
  bool sessionBShared;
#ifdef __cplusplus
};
#else
} KaloDllState;
#endif

extern KaloDllState gKaloDllState;

#ifdef __cplusplus
// Debuggers and other code of the process find the fields by these offsets.
static_assert(sizeof(KaloDllState) == 3208);
static_assert(offsetof(KaloDllState, stateLock) == 8);
static_assert(offsetof(KaloDllState, provisioningSession) == 48);
static_assert(offsetof(KaloDllState, fenuSession) == 72);
static_assert(offsetof(KaloDllState, apiErrorText) == 80);
static_assert(offsetof(KaloDllState, kaloErrorText) == 1108);
static_assert(offsetof(KaloDllState, fenuErrorText) == 2136);
static_assert(offsetof(KaloDllState, lastErrorSource) == 3164);
static_assert(offsetof(KaloDllState, lastErrorContext) == 3168);
static_assert(offsetof(KaloDllState, lastErrorProcessId) == 3176);
static_assert(offsetof(KaloDllState, stateInitFlag) == 3184);
static_assert(offsetof(KaloDllState, kaloRefCountA) == 3188);
static_assert(offsetof(KaloDllState, sessionBShared) == 3200);
#endif
