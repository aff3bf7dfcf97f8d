#include <exception>
#include <stdexcept>

#include "api/error_record.h"
#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "api/session_field.h"
#include "log/log_line.h"
#include "transport/client_session.h"
#include "transport/kalo_exception.h"
#include "transport/message_header.h"

using logging::Hex;
using logging::kTraceLevel;

namespace {

void CheckBuffers(const unsigned char* input, unsigned int inputLength, const unsigned char* output,
                  unsigned int outputLength) {
  if (input == nullptr || output == nullptr) {
    throw KaloException(KALO_DLL_STATUS_INVALID_PARAMETER, "Invalid In or Out Buffer pointer");
  }
  if (inputLength < sizeof(KaloMessageHeader)) {
    throw KaloException(KALO_DLL_STATUS_INPUT_BUFFER_TOO_SMALL, "Input buffer < kalo header size");
  }
  if (outputLength < sizeof(KaloMessageHeader)) {
    throw KaloException(KALO_DLL_STATUS_OUTPUT_BUFFER_TOO_SMALL,
                        "Output buffer < kalo header size");
  }
}

// Returns the session of the command's client, or null if it was destroyed.
ClientSession* SelectSession(const unsigned char* input) {
  const _GUID* client = ClientSession::CommandIdToGuid(transport::HeaderOf(input).commandId);
  ClientSession* session = nullptr;
  if (client == &ClientSession::KALO_CLIENT_GUID) {
    session = kaloFieldA.Live();
  } else if (client == &ClientSession::FENU_CLIENT_GUID) {
    session = fenuField.Live();
  } else {
    throw std::logic_error("Client GUID not supported");
  }
  if (session == nullptr) {
    throw KaloException(KALO_DLL_STATUS_NOT_INITIALIZED,
                        "StartIoEx() called before Init() or after Cleanup() API");
  }
  return session;
}

// Contract: the source depends only on whether the field holds `selected`, which is null if the
// failure came before a session was selected. Such a failure belongs to FENU if the field holds an
// address, even that of a destroyed session.
_KaloDllErrorSource SourceOf(const ClientSession* selected) {
  return kaloFieldA.Get() == selected ? KALO_ERROR_SOURCE_KALO : KALO_ERROR_SOURCE_FENU;
}

// Lowers the count of a session. At zero, closes the session, clears the field and replaces
// `status`. Returns true if it was the last reference.
bool DropReference(SessionField& field, uint32_t& count, KALO_DLL_STATUS& status) {
  if (field.Get() == nullptr || count == 0 || --count != 0) return false;
  status = CloseSession(field.Live(), kKaloSide);
  field.Set(nullptr);
  return true;
}

}  // namespace

KALO_DLL_STATUS KaloInit(void) {
  KALO_LOG_TAGGED(kTraceLevel, 802) << "Executing call to KaloInit() API...";
  // Contract: uses the field even if it holds the address of a destroyed session, and does not
  // raise the count.
  if (kaloFieldA.Get() != nullptr) {
    KALO_LOG_TAGGED(kTraceLevel, 820) << "Call to KaloInit() API completed successfully.";
    return KALO_DLL_STATUS_SUCCESS;
  }
  const KALO_DLL_STATUS status = KaloInit3(reinterpret_cast<void**>(&gKaloDllState.kaloSessionA));
  if (status != KALO_DLL_STATUS_SUCCESS) {
    KALO_LOG_TAGGED(kTraceLevel, 814) << "Call to KaloInit() API failed.";
    return status;
  }
  KALO_LOG_TAGGED(kTraceLevel, 810) << "Call to KaloInit() API completed successfully.";
  return KALO_DLL_STATUS_SUCCESS;
}

KALO_DLL_STATUS StartIoEx(unsigned char* input, unsigned int inputLength, unsigned char* output,
                          unsigned int outputLength, unsigned char* privateData,
                          unsigned int* privateDataLength) {
  ClientSession* session = nullptr;
  try {
    CheckBuffers(input, inputLength, output, outputLength);
    session = SelectSession(input);
    return StartIoEx3(session, input, inputLength, output, outputLength, privateData,
                      privateDataLength);
  } catch (const KaloException& exception) {
    const char* text = exception.what();
    KALO_LOG_TAGGED(kTraceLevel, 1025) << "Call to StartIoEx() API failed.";
    KALO_LOG_TAGGED(kTraceLevel, 1026) << text;
    RecordError(SourceOf(session), text, exception.errorStatus, kNoErrorContext);
    return exception.errorStatus;
  } catch (const std::exception& exception) {
    const char* text = exception.what();
    // Contract: the text names another call.
    KALO_LOG_TAGGED(kTraceLevel, 1041) << "Call to FenuInit3() API failed.";
    KALO_LOG_TAGGED(kTraceLevel, 1042) << text;
    RecordError(SourceOf(session), text, kNoStatusCode, kNoErrorContext);
    return KALO_DLL_STATUS_FAILURE;
  }
}

KALO_DLL_STATUS StartIo(unsigned char* input, unsigned int inputLength, unsigned char* output,
                        unsigned int outputLength) {
  return StartIoEx(input, inputLength, output, outputLength, nullptr, nullptr);
}

KALO_DLL_STATUS KaloCleanup(void) {
  KALO_LOG_TAGGED(kTraceLevel, 830) << "Executing call to KaloCleanup() API...";
  KALO_LOG_TAGGED(kTraceLevel, 832) << "KALO DREM Ref Cnt A " << Hex(gKaloDllState.kaloRefCountA);
  KALO_DLL_STATUS status = KALO_DLL_STATUS_SUCCESS;
  if (DropReference(kaloFieldA, gKaloDllState.kaloRefCountA, status)) {
    gKaloDllState.sessionBShared = false;
  }
  KALO_LOG_TAGGED(kTraceLevel, 848) << "KALO DREM Ref Cnt A " << Hex(gKaloDllState.kaloRefCountA);
  KALO_LOG_TAGGED(kTraceLevel, 850) << "KALO DREM Ref Cnt B " << Hex(gKaloDllState.kaloRefCountB);
  // Contract: the status of session B replaces the status of session A, even a failure.
  DropReference(kaloFieldB, gKaloDllState.kaloRefCountB, status);
  KALO_LOG_TAGGED(kTraceLevel, 862) << "KALO DREM Ref Cnt B " << Hex(gKaloDllState.kaloRefCountB);
  if (status != KALO_DLL_STATUS_SUCCESS) {
    KALO_LOG_TAGGED(kTraceLevel, 870) << "Call to KaloCleanup() API failed.";
    return status;
  }
  KALO_LOG_TAGGED(kTraceLevel, 866) << "Call to KaloCleanup() API completed successfully.";
  return KALO_DLL_STATUS_SUCCESS;
}
