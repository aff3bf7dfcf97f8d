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

using logging::kTraceLevel;

namespace {

void CheckBuffers(const unsigned char* input, unsigned int inputLength,
                  const unsigned char* output, unsigned int outputLength) {
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

// The session of the command's client; a session that has been destroyed counts as none.
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

// Decided by comparison alone, also for a failure that came before a session was selected, which
// then counts as null: so such a failure is FENU's while the field holds an address, be its session
// open or destroyed. Meant.
_KaloDllErrorSource SourceOf(const ClientSession* selected) {
  return kaloFieldA.Get() == selected ? KALO_ERROR_SOURCE_KALO : KALO_ERROR_SOURCE_FENU;
}

}  // namespace

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
    // The name of another call, which is meant.
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
