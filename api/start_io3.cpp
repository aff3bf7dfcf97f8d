#include <cstring>
#include <exception>

#include "api/error_record.h"
#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "log/address.h"
#include "log/log_line.h"
#include "transport/client_session.h"
#include "transport/kalo_exception.h"

using logging::kOrdinaryLevel;

namespace {

constexpr char kFunction[] = "StartIoEx3";

// An ioctl tag and its terminating zero; only the text is compared.
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
  KALO_LOG_AS(kOrdinaryLevel, kFunction) << "Executing call to StartIoEx3() API...";
  KALO_LOG_AS(kOrdinaryLevel, kFunction) << "CpSession: " << logging::Address{session} << '\n';
  KALO_LOG_AS(kOrdinaryLevel, kFunction) << "InputBufferLength: " << buffers.inputLength << '\n';
  KALO_LOG_AS(kOrdinaryLevel, kFunction) << "OutputBufferLength: " << buffers.outputLength << '\n';
}

// True when the private data asked for an ioctl wrapper instead of a message.
bool ServeIoctlTag(ClientSession& session, const Buffers& buffers) {
  if (buffers.privateData == nullptr || buffers.privateDataLength == nullptr ||
      *buffers.privateDataLength != kTagLength) {
    return false;
  }
  if (HasTag(buffers.privateData, kAllocTag)) {
    KALO_LOG_AS(kOrdinaryLevel, kFunction) << "IoctlWrapper handle allocation call" << '\n';
    session.IoctlAllocWrapper(buffers.input, buffers.inputLength, buffers.output);
    return true;
  }
  if (HasTag(buffers.privateData, kFreeTag)) {
    KALO_LOG_AS(kOrdinaryLevel, kFunction) << "IoctlWrapper handle free call" << '\n';
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
  KALO_LOG_AS(kOrdinaryLevel, kFunction) << "Kalo Exception : Call to StartIoEx3() API failed.";
  KALO_LOG_AS(kOrdinaryLevel, kFunction) << text;
  RecordError(KALO_ERROR_SOURCE_API3, text, exception.errorStatus, session);
  return exception.errorStatus;
}

KALO_DLL_STATUS FailGeneral(ClientSession* session, const std::exception& exception) {
  const char* text = exception.what();
  if (session != nullptr) StoreSessionError(*session, text);
  KALO_LOG_AS(kOrdinaryLevel, kFunction) << "General Exception : Call to StartIoEx3() API failed.";
  KALO_LOG_AS(kOrdinaryLevel, kFunction) << text;
  RecordError(KALO_ERROR_SOURCE_API3, text, kNoStatusCode, session);
  return KALO_DLL_STATUS_FAILURE;
}

}  // namespace

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
