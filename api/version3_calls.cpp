#include <cstring>
#include <exception>
#include <memory>

#include "api/error_record.h"
#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "api/session_field.h"
#include "log/delivery.h"
#include "log/log_line.h"
#include "oscl/critical_section_guard.h"
#include "transport/client_session.h"
#include "transport/kalo_exception.h"

using logging::Address;
using logging::Hex;
using logging::kOrdinaryLevel;

namespace {

constexpr uint32_t kVersion3 = 3;

// ---- KaloInit3 ----

constexpr char kInit[] = "KaloInit3";

// The session that this call must destroy if it fails.
struct PendingDeleter {
  void operator()(ClientSession* session) const { DestroySession(session, kKaloSide); }
};
using PendingSession = std::unique_ptr<ClientSession, PendingDeleter>;

// Copies bytes, because the handle variable may be a session field, which has another pointer type.
void WriteHandle(void** handle, ClientSession* session) {
  std::memcpy(handle, &session, sizeof session);
}

const void* ReadHandle(void* const* handle) {
  const void* value;
  std::memcpy(&value, handle, sizeof value);
  return value;
}

void OpenSessionOf(SessionField& field, PendingSession& pending, uint32_t& count) {
  pending.reset(OpenSession(&ClientSession::KALO_CLIENT_GUID));
  field.Set(pending.get());
  ++count;
}

void OpenSessionA(PendingSession& pending, void** handle) {
  OpenSessionOf(kaloFieldA, pending, gKaloDllState.kaloRefCountA);
  KALO_LOG_AS(kOrdinaryLevel, kInit) << "KALO DREM Handle A " << Address{kaloFieldA.Get()};
  KALO_LOG_AS(kOrdinaryLevel, kInit) << "KALO DREM Ref Cnt A " << Hex(gKaloDllState.kaloRefCountA);
  gKaloDllState.sessionBShared = gKaloDllState.stateInitFlag;
  WriteHandle(handle, kaloFieldA.Get());
}

void ShareSessionA(void** handle) {
  WriteHandle(handle, kaloFieldA.Get());
  ++gKaloDllState.kaloRefCountA;
  KALO_LOG_AS(kOrdinaryLevel, kInit) << "KALO DREM Handle A " << Address{kaloFieldA.Get()};
  KALO_LOG_AS(kOrdinaryLevel, kInit)
      << "KALO DREM Ref Cnt A with FW API_32 " << Hex(gKaloDllState.kaloRefCountA);
}

void OpenSessionB(PendingSession& pending, void** handle) {
  OpenSessionOf(kaloFieldB, pending, gKaloDllState.kaloRefCountB);
  KALO_LOG_AS(kOrdinaryLevel, kInit)
      << "KALO DREM Handle B with FW API_30 " << Address{kaloFieldB.Get()};
  KALO_LOG_AS(kOrdinaryLevel, kInit)
      << "KALO DREM Ref Cnt B with FW API_30 " << Hex(gKaloDllState.kaloRefCountB);
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
  KALO_LOG_AS(kOrdinaryLevel, kInit)
      << "KALO DREM Ref Cnt A with FW API_30 " << Hex(gKaloDllState.kaloRefCountA);
  KALO_LOG_AS(kOrdinaryLevel, kInit)
      << "KALO DREM Ref Cnt B with FW API_30 " << Hex(gKaloDllState.kaloRefCountB);
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
    // Contract: returns success and does not write the handle variable.
    KALO_LOG_AS(kOrdinaryLevel, kInit) << "Error - FW version is not set ";
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
  // Contract: rolls nothing else back: the field keeps the address and the count stays.
  pending.reset();
  KALO_LOG_AS(kOrdinaryLevel, kInit) << "Call to KaloInit3() API failed.";
  KALO_LOG_AS(kOrdinaryLevel, kInit) << text;
  RecordError(KALO_ERROR_SOURCE_API3, text, code, kNoErrorContext);
  return status;
}

// ---- StartIoEx3 ----

constexpr char kStartIo[] = "StartIoEx3";

// An ioctl tag with its NUL; only the text is compared.
constexpr unsigned int kTagLength = 9;
constexpr char kAllocTag[] = "IOCTLHND";
constexpr char kFreeTag[] = "IOCTLFRE";

bool HasTag(const unsigned char* privateData, const char (&tag)[kTagLength]) {
  return std::memcmp(privateData, tag, kTagLength - 1) == 0;
}

struct Buffers {
  unsigned char* input;
  unsigned int inputLength;
  unsigned char* output;
  unsigned int outputLength;
  unsigned char* privateData;
  unsigned int* privateDataLength;
};

void LogEntry(const void* session, const Buffers& buffers) {
  KALO_LOG_AS(kOrdinaryLevel, kStartIo) << "Executing call to StartIoEx3() API...";
  KALO_LOG_AS(kOrdinaryLevel, kStartIo) << "CpSession: " << Address{session} << '\n';
  KALO_LOG_AS(kOrdinaryLevel, kStartIo) << "InputBufferLength: " << buffers.inputLength << '\n';
  KALO_LOG_AS(kOrdinaryLevel, kStartIo) << "OutputBufferLength: " << buffers.outputLength << '\n';
}

// Returns true if the private data requests an ioctl wrapper instead of a message.
bool ServeIoctlTag(ClientSession& session, const Buffers& buffers) {
  if (buffers.privateData == nullptr || buffers.privateDataLength == nullptr ||
      *buffers.privateDataLength != kTagLength) {
    return false;
  }
  if (HasTag(buffers.privateData, kAllocTag)) {
    KALO_LOG_AS(kOrdinaryLevel, kStartIo) << "IoctlWrapper handle allocation call" << '\n';
    session.IoctlAllocWrapper(buffers.input, buffers.inputLength, buffers.output);
    return true;
  }
  if (HasTag(buffers.privateData, kFreeTag)) {
    KALO_LOG_AS(kOrdinaryLevel, kStartIo) << "IoctlWrapper handle free call" << '\n';
    session.IoctlFreeWrapper(buffers.input, buffers.inputLength);
    return true;
  }
  return false;
}

void Serve(ClientSession* session, const Buffers& buffers) {
  if (session == nullptr) {
    throw KaloException(KALO_DLL_STATUS_INVALID_PARAMETER, "Invalid CP session handle");
  }
  if (buffers.input == nullptr || buffers.output == nullptr) {
    throw KaloException(KALO_DLL_STATUS_INVALID_PARAMETER, "Invalid In or Out Buffer pointer");
  }
  if (ServeIoctlTag(*session, buffers)) return;
  session->IoMessage(buffers.input, buffers.inputLength, buffers.output, buffers.outputLength,
                     buffers.privateData, buffers.privateDataLength);
}

KALO_DLL_STATUS FailKalo(ClientSession* session, const KaloException& exception) {
  const char* text = exception.what();
  if (session != nullptr) StoreSessionError(*session, exception.errorStatus, text);
  KALO_LOG_AS(kOrdinaryLevel, kStartIo) << "Kalo Exception : Call to StartIoEx3() API failed.";
  KALO_LOG_AS(kOrdinaryLevel, kStartIo) << text;
  RecordError(KALO_ERROR_SOURCE_API3, text, exception.errorStatus, session);
  return exception.errorStatus;
}

KALO_DLL_STATUS FailGeneral(ClientSession* session, const std::exception& exception) {
  const char* text = exception.what();
  if (session != nullptr) StoreSessionError(*session, text);
  KALO_LOG_AS(kOrdinaryLevel, kStartIo) << "General Exception : Call to StartIoEx3() API failed.";
  KALO_LOG_AS(kOrdinaryLevel, kStartIo) << text;
  RecordError(KALO_ERROR_SOURCE_API3, text, kNoStatusCode, session);
  return KALO_DLL_STATUS_FAILURE;
}

// ---- KaloCleanup3 ----

constexpr char kCleanup[] = "KaloCleanup3";

// Releases one reference if the handle is in this field. Returns true if it was the last. Contract:
// the field keeps the address, because KaloInit3 looks only at the counts.
bool DropReference(const void* handle, SessionField& field, uint32_t& count,
                   KALO_DLL_STATUS& result) {
  if (handle != field.Get() || count == 0 || --count != 0) return false;
  result = CloseSession(field.Live(), kKaloSide);
  return true;
}

void LogCountA() {
  KALO_LOG_AS(kOrdinaryLevel, kCleanup)
      << "KALO DREM Ref Cnt A " << Hex(gKaloDllState.kaloRefCountA);
}

void LogCountB() {
  KALO_LOG_AS(kOrdinaryLevel, kCleanup)
      << "KALO DREM Ref Cnt B " << Hex(gKaloDllState.kaloRefCountB);
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
  // The state owns the session from here on.
  pending.release();
  return KALO_DLL_STATUS_SUCCESS;
}

KALO_DLL_STATUS StartIoEx3(void* handle, unsigned char* input, unsigned int inputLength,
                           unsigned char* output, unsigned int outputLength,
                           unsigned char* privateData, unsigned int* privateDataLength) {
  const Buffers buffers{input, inputLength, output, outputLength, privateData, privateDataLength};
  auto* session = static_cast<ClientSession*>(handle);
  LogEntry(session, buffers);
  try {
    Serve(session, buffers);
    KALO_LOG(kOrdinaryLevel) << "Call to StartIoEx3() API completed successfully.";
    return KALO_DLL_STATUS_SUCCESS;
  } catch (const KaloException& exception) {
    return FailKalo(session, exception);
  } catch (const std::exception& exception) {
    return FailGeneral(session, exception);
  }
}

KALO_DLL_STATUS StartIo3(void* session, unsigned char* input, unsigned int inputLength,
                         unsigned char* output, unsigned int outputLength) {
  KALO_LOG(kOrdinaryLevel) << "Executing call to StartIo3() API...";
  const KALO_DLL_STATUS status =
      StartIoEx3(session, input, inputLength, output, outputLength, nullptr, nullptr);
  if (status == KALO_DLL_STATUS_SUCCESS) {
    KALO_LOG(kOrdinaryLevel) << "Call to StartIo3() API completed successfully.";
  } else {
    KALO_LOG(kOrdinaryLevel) << "Call to StartIo3() API failed.";
  }
  return status;
}

KALO_DLL_STATUS ProvisioningStartIo(unsigned char* input, unsigned int inputLength,
                                    unsigned char* output, unsigned int outputLength) {
  return StartIoEx3(gKaloDllState.provisioningSession, input, inputLength, output, outputLength,
                    nullptr, nullptr);
}

KALO_DLL_STATUS KaloCleanup3(void* handle) {
  KALO_LOG(kOrdinaryLevel) << "Executing call to KaloCleanup3() API...";
  LogCountA();
  KALO_DLL_STATUS result = KALO_DLL_STATUS_SUCCESS;
  if (DropReference(handle, kaloFieldA, gKaloDllState.kaloRefCountA, result)) {
    gKaloDllState.sessionBShared = false;
  }
  LogCountA();
  LogCountB();
  DropReference(handle, kaloFieldB, gKaloDllState.kaloRefCountB, result);
  LogCountB();
  if (result != KALO_DLL_STATUS_SUCCESS) {
    KALO_LOG(kOrdinaryLevel) << "Call to KaloCleanup3() API failed.";
  } else {
    KALO_LOG(kOrdinaryLevel) << "Call to KaloCleanup3() API completed successfully.";
  }
  return result;
}
