#pragma once

/* The state that the library keeps between calls, for C and C++ drivers. */

#include <stddef.h>
#include <stdint.h>

#include "oscl/critical_section.h"

#define KALO_ERROR_TEXT_SIZE 1024

/* There is one state, gKaloDllState, from load to unload. Its layout is part of the binary
 * interface. Only KaloInit3 takes stateLock. All other calls read and write the fields without it,
 * so the driver must serialise initialisation and cleanup. Unload destroys the lock: a later
 * KaloInit3 returns 0 or 1 with glibc, and aborts the process on Android. */
#ifdef __cplusplus
class ClientSession;
class KaloDllState {
 public:
  KaloDllState();
  // Does not close open sessions.
  ~KaloDllState();
  KaloDllState(const KaloDllState&) = delete;
  KaloDllState& operator=(const KaloDllState&) = delete;

  static constexpr size_t kErrorTextSize = KALO_ERROR_TEXT_SIZE;

#else
#include <stdbool.h>
typedef struct ClientSession ClientSession;
typedef struct KaloDllState {
#endif
  /* 0 before the first KaloInit3, then 3. Never reset. */
  uint32_t kaloInterfaceVersion;
  /* 3 while FenuInit3 owns the FENU side. */
  uint32_t fenuInterfaceVersion;
  CRITICAL_SECTION stateLock;
  /* Never set by the library. */
  ClientSession* provisioningSession;
  /* Owned while their counts are not 0. The version-3 cleanups do not clear them. An address that
   * the driver writes here counts as an open session, unless the field still holds that address
   * from a session that the library destroyed. */
  ClientSession* kaloSessionA;
  ClientSession* kaloSessionB;
  ClientSession* fenuSession;
  /* The last error of each source: a text with its NUL, and the status or 0xFFFFFFFF. */
  char apiErrorText[KALO_ERROR_TEXT_SIZE];
  uint32_t apiErrorCode;
  char kaloErrorText[KALO_ERROR_TEXT_SIZE];
  uint32_t kaloErrorCode;
  char fenuErrorText[KALO_ERROR_TEXT_SIZE];
  uint32_t fenuErrorCode;
  uint32_t lastErrorSource;
  /* For the last version-3 error: the handle as passed to StartIoEx3, even if null. 0xDEADBEEF
   * after a failed initialisation and before the first error. */
  void* lastErrorContext;
  uint32_t lastErrorProcessId;
  uint32_t firmwareApiVersion;
  bool stateInitFlag;
  /* The number of unreleased handles. */
  uint32_t kaloRefCountA;
  uint32_t kaloRefCountB;
  uint32_t fenuRefCount;
  /* The value of stateInitFlag when kaloSessionA was opened. */
  bool sessionBShared;
#ifdef __cplusplus
};
#else
} KaloDllState;
#endif

extern KaloDllState gKaloDllState;

#ifdef __cplusplus
// Drivers and debuggers rely on these offsets.
static_assert(sizeof(KaloDllState) == 3208);
static_assert(offsetof(KaloDllState, stateLock) == 8);
static_assert(offsetof(KaloDllState, provisioningSession) == 48);
static_assert(offsetof(KaloDllState, kaloSessionA) == 56);
static_assert(offsetof(KaloDllState, fenuSession) == 72);
static_assert(offsetof(KaloDllState, apiErrorText) == 80);
static_assert(offsetof(KaloDllState, kaloErrorText) == 1108);
static_assert(offsetof(KaloDllState, fenuErrorText) == 2136);
static_assert(offsetof(KaloDllState, lastErrorSource) == 3164);
static_assert(offsetof(KaloDllState, lastErrorContext) == 3168);
static_assert(offsetof(KaloDllState, lastErrorProcessId) == 3176);
static_assert(offsetof(KaloDllState, stateInitFlag) == 3184);
static_assert(offsetof(KaloDllState, kaloRefCountA) == 3188);
static_assert(offsetof(KaloDllState, kaloRefCountB) == 3192);
static_assert(offsetof(KaloDllState, sessionBShared) == 3200);
#endif
