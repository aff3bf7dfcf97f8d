#include <cstring>
#include <exception>
#include <memory>

#include "api/error_record.h"
#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "api/session_field.h"
#include "log/address.h"
#include "log/file_sink.h"
#include "log/log_line.h"
#include "oscl/critical_section_guard.h"
#include "transport/client_session.h"
#include "transport/kalo_exception.h"

using logging::Address;
using logging::kOrdinaryLevel;

namespace {

constexpr char kFunction[] = "KaloInit3";
constexpr uint32_t kVersion3 = 3;

// The session that a failure of this call must destroy.
using PendingSession = std::unique_ptr<ClientSession>;

// The handle variable may be a session field of another pointer type, so it is reached by copying.
void WriteHandle(void** handle, ClientSession* session) {
  std::memcpy(handle, &session, sizeof session);
}

const void* ReadHandle(void* const* handle) {
  const void* value;
  std::memcpy(&value, handle, sizeof value);
  return value;
}

void OpenSession(PendingSession& pending, SessionField& field, uint32_t& count) {
  pending = std::make_unique<ClientSession>();
  pending->ConnectClient(&ClientSession::KALO_CLIENT_GUID);
  field.Set(pending.get());
  ++count;
}

void OpenSessionA(PendingSession& pending, void** handle) {
  OpenSession(pending, kaloFieldA, gKaloDllState.kaloRefCountA);
  KALO_LOG_AS(kOrdinaryLevel, kFunction) << "KALO DREM Handle A " << Address{kaloFieldA.Get()};
  KALO_LOG_AS(kOrdinaryLevel, kFunction)
      << "KALO DREM Ref Cnt A " << std::hex << gKaloDllState.kaloRefCountA;
  gKaloDllState.sessionBShared = gKaloDllState.stateInitFlag;
  WriteHandle(handle, kaloFieldA.Get());
}

void ShareSessionA(void** handle) {
  WriteHandle(handle, kaloFieldA.Get());
  ++gKaloDllState.kaloRefCountA;
  KALO_LOG_AS(kOrdinaryLevel, kFunction) << "KALO DREM Handle A " << Address{kaloFieldA.Get()};
  KALO_LOG_AS(kOrdinaryLevel, kFunction)
      << "KALO DREM Ref Cnt A with FW API_32 " << std::hex << gKaloDllState.kaloRefCountA;
}

void OpenSessionB(PendingSession& pending, void** handle) {
  OpenSession(pending, kaloFieldB, gKaloDllState.kaloRefCountB);
  KALO_LOG_AS(kOrdinaryLevel, kFunction)
      << "KALO DREM Handle B with FW API_30 " << Address{kaloFieldB.Get()};
  KALO_LOG_AS(kOrdinaryLevel, kFunction)
      << "KALO DREM Ref Cnt B with FW API_30 " << std::hex << gKaloDllState.kaloRefCountB;
  WriteHandle(handle, kaloFieldB.Get());
}

void ShareEitherSession(void** handle) {
  if (gKaloDllState.sessionBShared) {
    ++gKaloDllState.kaloRefCountB;
    WriteHandle(handle, kaloFieldB.Get());
  } else {
    ++gKaloDllState.kaloRefCountA;
    WriteHandle(handle, kaloFieldA.Get());
  }
  KALO_LOG_AS(kOrdinaryLevel, kFunction)
      << "KALO DREM Ref Cnt A with FW API_30 " << std::hex << gKaloDllState.kaloRefCountA;
  KALO_LOG_AS(kOrdinaryLevel, kFunction)
      << "KALO DREM Ref Cnt B with FW API_30 " << std::hex << gKaloDllState.kaloRefCountB;
}

void ChooseSession(PendingSession& pending, void** handle) {
  if (gKaloDllState.kaloRefCountA == 0) {
    OpenSessionA(pending, handle);
  } else if (gKaloDllState.firmwareApiVersion == KALO_FIRMWARE_API_32) {
    ShareSessionA(handle);
  } else if (gKaloDllState.firmwareApiVersion == KALO_FIRMWARE_API_30) {
    if (gKaloDllState.kaloRefCountB == 0) {
      OpenSessionB(pending, handle);
    } else {
      ShareEitherSession(handle);
    }
  } else {
    // Still a success, and the handle variable keeps what it held; both are meant.
    KALO_LOG_AS(kOrdinaryLevel, kFunction) << "Error - FW version is not set ";
  }
}

void ClaimGeneration() {
  uint32_t& version = gKaloDllState.kaloInterfaceVersion;
  if (version != 0 && version != kVersion3) {
    throw KaloException(KALO_DLL_STATUS_PROVISIONING_FAILED,
                        "Previous provisioning attempt failed.");
  }
  version = kVersion3;
}

KALO_DLL_STATUS Fail(PendingSession& pending, const char* text, uint32_t code,
                     KALO_DLL_STATUS status) {
  // Nothing else is rolled back: the field keeps the address and the count stays, which is meant.
  pending.reset();
  KALO_LOG_AS(kOrdinaryLevel, kFunction) << "Call to KaloInit3() API failed.";
  KALO_LOG_AS(kOrdinaryLevel, kFunction) << text;
  RecordError(KALO_ERROR_SOURCE_API3, text, code, kNoErrorContext);
  return status;
}

}  // namespace

KALO_DLL_STATUS KaloInit3(void** handle) {
  __atomic_store_n(&Logger::logBase.level, kOrdinaryLevel, __ATOMIC_RELAXED);
  logging::AppendFileSink();
  KALO_LOG(kOrdinaryLevel) << "Executing call to KaloInit3() API ...";

  const oscl::CriticalSectionGuard guard(gKaloDllState.stateLock);
  PendingSession pending;
  try {
    ChooseSession(pending, handle);
    ClaimGeneration();
    KALO_LOG(kOrdinaryLevel) << "Call to KaloInit3() API completed successfully. ";
    KALO_LOG(kOrdinaryLevel) << "Returned DREM Handle " << Address{ReadHandle(handle)};
  } catch (const KaloException& exception) {
    return Fail(pending, exception.what(), exception.errorStatus, exception.errorStatus);
  } catch (const std::exception& exception) {
    return Fail(pending, exception.what(), kNoStatusCode, KALO_DLL_STATUS_FAILURE);
  }
  // From here on the state owns it.
  pending.release();
  return KALO_DLL_STATUS_SUCCESS;
}
