#include "api/error_record.h"

#include <unistd.h>

#include <string>

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "oscl/bounded_string.h"
#include "transport/client_session.h"

namespace {

// Contract: a null or too long text leaves the old text, but the code changes.
void Store(char (&record)[KaloDllState::kErrorTextSize], uint32_t& recordedCode, const char* text,
           uint32_t code) {
  if (text != nullptr) strcpy_s(record, sizeof record, text);
  recordedCode = code;
}

}  // namespace

void SaveLastErrorInfo(_KaloDllErrorSource source, const char* text, unsigned int code,
                       void* context, unsigned int processId) {
  gKaloDllState.lastErrorSource = source;
  gKaloDllState.lastErrorProcessId = processId;
  switch (source) {
    case KALO_ERROR_SOURCE_API3:
      Store(gKaloDllState.apiErrorText, gKaloDllState.apiErrorCode, text, code);
      gKaloDllState.lastErrorContext = context;
      break;
    case KALO_ERROR_SOURCE_KALO:
      Store(gKaloDllState.kaloErrorText, gKaloDllState.kaloErrorCode, text, code);
      break;
    case KALO_ERROR_SOURCE_FENU:
      Store(gKaloDllState.fenuErrorText, gKaloDllState.fenuErrorCode, text, code);
      break;
  }
}

void RecordError(_KaloDllErrorSource source, const char* text, uint32_t code, void* context) {
  SaveLastErrorInfo(source, text, code, context, static_cast<unsigned int>(getpid()));
}

void StoreSessionError(ClientSession& session, KALO_DLL_STATUS status, const char* text) noexcept {
  try {
    session.storeErrInfo(status, text);
  } catch (const std::exception&) {
    session.lastErrorStatus = static_cast<int32_t>(status);  // without memory for the text
  }
}

void StoreSessionError(ClientSession& session, const char* text) noexcept {
  try {
    session.storeErrInfo(text);
  } catch (const std::exception&) {
    session.lastErrorStatus = -1;
  }
}
