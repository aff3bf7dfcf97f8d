#include <cstring>
#include <exception>

#include "api/error_record.h"
#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "api/session_field.h"
#include "log/log_line.h"
#include "transport/client_session.h"
#include "transport/kalo_exception.h"

using logging::Address;
using logging::Hex;
using logging::kTraceLevel;

namespace {

constexpr uint32_t kVersion3 = 3;

// Opens the session for FenuInit3, or raises its count. Changes nothing if the connection fails, or
// if the generation is neither 0 nor 3.
void AcquireSession() {
  constexpr char kFunction[] = "FenuInit3";
  if (gKaloDllState.fenuInterfaceVersion == 0) {
    fenuField.Set(OpenSession(&ClientSession::FENU_CLIENT_GUID));
    ++gKaloDllState.fenuRefCount;
    gKaloDllState.fenuInterfaceVersion = kVersion3;
    KALO_LOG_FULL(kTraceLevel, kFunction, 676)
        << "KALO FeNu DREM Handle " << Address{fenuField.Get()};
    KALO_LOG_FULL(kTraceLevel, kFunction, 677)
        << "KALO FeNu DREM Ref Cnt " << Hex(gKaloDllState.fenuRefCount);
  } else if (gKaloDllState.fenuInterfaceVersion == kVersion3) {
    ++gKaloDllState.fenuRefCount;
    KALO_LOG_FULL(kTraceLevel, kFunction, 682)
        << "KALO FeNu DREM Ref Cnt " << Hex(gKaloDllState.fenuRefCount);
  }
}

}  // namespace

KALO_DLL_STATUS FenuInit3(void** handle) {
  KALO_LOG_TAGGED(kTraceLevel, 660) << "Executing call to FenuInit3() API...";
  try {
    AcquireSession();
    // Copied because the handle variable may be the field itself, through another pointer type.
    ClientSession* session = fenuField.Get();
    std::memcpy(handle, &session, sizeof session);
    KALO_LOG_TAGGED(kTraceLevel, 709) << "Call to FenuInit3() API completed successfully. ";
    return KALO_DLL_STATUS_SUCCESS;
  } catch (const KaloException& exception) {
    const char* text = exception.what();
    KALO_LOG_TAGGED(kTraceLevel, 688) << "Call to FenuInit3() API failed.";
    KALO_LOG_TAGGED(kTraceLevel, 689) << text;
    RecordError(KALO_ERROR_SOURCE_API3, text, exception.errorStatus, kNoErrorContext);
    return exception.errorStatus;
  } catch (const std::exception& exception) {
    const char* text = exception.what();
    KALO_LOG_TAGGED(kTraceLevel, 698) << "Call to FenuInit3() API failed.";
    KALO_LOG_TAGGED(kTraceLevel, 699) << text;
    RecordError(KALO_ERROR_SOURCE_API3, text, kNoStatusCode, kNoErrorContext);
    return KALO_DLL_STATUS_FAILURE;
  }
}

KALO_DLL_STATUS FenuCleanup3(void* handle) {
  KALO_LOG_TAGGED(kTraceLevel, 721) << "Executing call to FenuCleanup3() API... ";
  KALO_LOG_TAGGED(kTraceLevel, 723) << "FeNu KALO DREM Ref Cnt " << Hex(gKaloDllState.fenuRefCount);
  KALO_DLL_STATUS status = KALO_DLL_STATUS_SUCCESS;
  if (gKaloDllState.fenuRefCount != 0 && --gKaloDllState.fenuRefCount == 0) {
    // Contract: closes the session of the handle as passed, and keeps the address in the field.
    auto* session = static_cast<ClientSession*>(handle);
    // The driver may pass a KALO handle. It may have the address of a destroyed FENU session.
    status = CloseSession(session, session == fenuField.Live() ? kFenuSide : kBothSides);
    gKaloDllState.fenuInterfaceVersion = 0;
  }
  KALO_LOG_TAGGED(kTraceLevel, 734) << "FeNu KALO DREM Ref Cnt " << Hex(gKaloDllState.fenuRefCount);
  if (status != KALO_DLL_STATUS_SUCCESS) {
    KALO_LOG_TAGGED(kTraceLevel, 742) << "Call to FenuCleanup3() API failed.";
    return status;
  }
  KALO_LOG_TAGGED(kTraceLevel, 738) << "Call to FenuCleanup3() API completed successfully.";
  return KALO_DLL_STATUS_SUCCESS;
}

KALO_DLL_STATUS FenuInit(void) {
  KALO_LOG_TAGGED(kTraceLevel, 881) << "Executing call to FenuInit() API...";
  // Contract: uses the field even if it holds the address of a destroyed session.
  if (fenuField.Get() != nullptr) {
    KALO_LOG_TAGGED(kTraceLevel, 899) << "Call to FenuInit() API completed successfully.";
    return KALO_DLL_STATUS_SUCCESS;
  }
  const KALO_DLL_STATUS status = FenuInit3(reinterpret_cast<void**>(&gKaloDllState.fenuSession));
  if (status != KALO_DLL_STATUS_SUCCESS) {
    KALO_LOG_TAGGED(kTraceLevel, 892) << "Call to FenuInit() API failed.";
    return status;
  }
  KALO_LOG_TAGGED(kTraceLevel, 888) << "Call to FenuInit() API completed successfully.";
  return KALO_DLL_STATUS_SUCCESS;
}

KALO_DLL_STATUS FenuCleanup(void) {
  KALO_LOG_TAGGED(kTraceLevel, 909) << "Executing call to FenuCleanup() API...";
  KALO_LOG_TAGGED(kTraceLevel, 911) << "FeNu KALO DREM Ref Cnt " << Hex(gKaloDllState.fenuRefCount);
  KALO_DLL_STATUS status = KALO_DLL_STATUS_SUCCESS;
  // Contract: closes the session even if the count is already 0, and keeps the generation.
  if (gKaloDllState.fenuRefCount == 0 || --gKaloDllState.fenuRefCount == 0) {
    status = CloseSession(fenuField.Live(), kFenuSide);
    fenuField.Set(nullptr);
  }
  KALO_LOG_TAGGED(kTraceLevel, 927) << "FeNu KALO DREM Ref Cnt " << Hex(gKaloDllState.fenuRefCount);
  if (status != KALO_DLL_STATUS_SUCCESS) {
    KALO_LOG_TAGGED(kTraceLevel, 935) << "Call to FenuCleanup() API failed.";
    return status;
  }
  KALO_LOG_TAGGED(kTraceLevel, 931) << "Call to FenuCleanup() API completed successfully.";
  return KALO_DLL_STATUS_SUCCESS;
}
