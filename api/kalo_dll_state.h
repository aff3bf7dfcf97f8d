#pragma once

#include <cstddef>
#include <cstdint>

#include "oscl/critical_section.h"

class ClientSession;

// All that the library keeps between calls. There is one, gKaloDllState, from load to unload, and
// its layout is part of the binary interface. Only KaloInit3 takes stateLock; everything else reads
// and writes the fields without it, so that the driver serialises initialisation and cleanup.
class KaloDllState {
 public:
  KaloDllState();
  // Leaves sessions that are still referenced alone.
  ~KaloDllState();
  KaloDllState(const KaloDllState&) = delete;
  KaloDllState& operator=(const KaloDllState&) = delete;

  static constexpr size_t kErrorTextSize = 1024;

  // 0: none yet, 3: version 3. Never reset.
  uint32_t kaloInterfaceVersion;
  // 3 while FenuInit3 owns the FENU side.
  uint32_t fenuInterfaceVersion;
  CRITICAL_SECTION stateLock;
  // Never set by the library.
  ClientSession* provisioningSession;
  // Owned while their counts are not 0. Not cleared by the version-3 cleanups.
  ClientSession* kaloSessionA;
  ClientSession* kaloSessionB;
  ClientSession* fenuSession;
  // The last error of each source: text, and status or 0xFFFFFFFF.
  char apiErrorText[kErrorTextSize];
  uint32_t apiErrorCode;
  char kaloErrorText[kErrorTextSize];
  uint32_t kaloErrorCode;
  char fenuErrorText[kErrorTextSize];
  uint32_t fenuErrorCode;
  uint32_t lastErrorSource;
  // The handle of the last version-3 error; 0xDEADBEEF when it had none, or before any.
  void* lastErrorContext;
  uint32_t lastErrorProcessId;
  uint32_t firmwareApiVersion;
  bool stateInitFlag;
  // Handles that are out.
  uint32_t kaloRefCountA;
  uint32_t kaloRefCountB;
  uint32_t fenuRefCount;
  // stateInitFlag as it was when kaloSessionA was opened.
  bool sessionBShared;
};

extern KaloDllState gKaloDllState;
