#include <cerrno>
#include <stdexcept>

#include "log/log_line.h"
#include "transport/cp_drem_session.h"
#include "transport/errno_policy.h"
#include "transport/message_header.h"
#include "transport/zuli_device.h"

using logging::kTraceLevel;
using transport::DeviceCall;
using transport::PolicyFor;

namespace {

constexpr char kFunction[] = "IoMessage";
constexpr unsigned int kPrivateDataLength = 16;

// Four messages, each with its own lead-in; only the last ends its line.
void LogHeader(const char* title, const unsigned char* message) {
  const KaloMessageHeader header = transport::HeaderOf(message);
  KALO_LOG_AS(kTraceLevel, kFunction) << title << std::hex << header.word0;
  KALO_LOG_AS(kTraceLevel, kFunction) << "| " << std::hex << header.commandId;
  KALO_LOG_AS(kTraceLevel, kFunction) << "| " << std::hex << header.status;
  KALO_LOG_AS(kTraceLevel, kFunction) << "| " << std::hex << header.word3 << '\n';
}

[[noreturn]] void FailTransfer(DeviceCall call, const char* title, const unsigned char* message) {
  const int error = errno;
  const char* text = PolicyFor(call, error).thrown;
  KALO_LOG_AS(kTraceLevel, kFunction) << text << " errno = " << error << '.';
  LogHeader(title, message);
  throw std::runtime_error(text);
}

constexpr char kInputTitle[] = "ZULI Input Msg ";
constexpr char kOutputTitle[] = "ZULI Output Msg ";

// False when there is nothing that could be sent.
bool SendRequest(CpDremSession& session, unsigned char* input, unsigned int length) {
  if (session.deviceFd == -1 || input == nullptr) {
    KALO_LOG_AS(kTraceLevel, kFunction) << "Error in IOMessage input parameters";
    return false;
  }
  const int written = session.WriteToZuli(input, length);
  if (written == -1) FailTransfer(DeviceCall::kWrite, kInputTitle, input);
  KALO_LOG_AS(kTraceLevel, kFunction) << "Write to ZULI bytes = " << written << '.';
  return true;
}

// True when the reply announces private data. A short reply is taken as it is: the status is what
// the buffer then holds, which is meant.
bool ReceiveReply(CpDremSession& session, unsigned char* output, unsigned int length) {
  if (session.deviceFd == -1 || output == nullptr) {
    KALO_LOG_AS(kTraceLevel, kFunction) << "Error in IOMessage output parameters";
    return false;
  }
  if (session.ReadFromZuli(output, length) == -1) {
    FailTransfer(DeviceCall::kRead, kOutputTitle, output);
  }
  return transport::HeaderOf(output).status < 0;
}

void ReceivePrivateData(CpDremSession& session, const unsigned char* output,
                        unsigned char* privateData, unsigned int* privateDataLength) {
  KALO_LOG_AS(kTraceLevel, kFunction) << "Received a status with the TEV private Data but set.";
  if (privateData == nullptr || privateDataLength == nullptr) {
    // The block stays unread in the driver, which is meant.
    KALO_LOG_AS(kTraceLevel, kFunction) << "Error in TEV input private data.";
    return;
  }
  const int received = session.ReadFromZuli(privateData, kPrivateDataLength);
  if (received == -1) {
    const int error = errno;
    KALO_LOG_AS(kTraceLevel, kFunction) << "Error reading TEV private data.";
    LogHeader(kOutputTitle, output);
    throw std::runtime_error(PolicyFor(DeviceCall::kReadPrivateData, error).thrown);
  }
  *privateDataLength = static_cast<unsigned int>(received);
  KALO_LOG_AS(kTraceLevel, kFunction)
      << "Read " << std::hex << received << " bytes of TEV private Data.";
}

}  // namespace

void CpDremSession::IoMessage(unsigned char* input, unsigned int inputLength, unsigned char* output,
                              unsigned int outputLength, unsigned char* privateData,
                              unsigned int* privateDataLength) {
  if (connectRecord != nullptr) {
    const ZuliConnectRecord::Properties& client = connectRecord->out;
    KALO_LOG(kTraceLevel) << std::hex << "fd = " << deviceFd << ", Version = "
                          << static_cast<unsigned int>(client.protocolVersion)
                          << ", MaxLen = " << client.maxMessageLength << '.';
  }
  if (SendRequest(*this, input, inputLength) && ReceiveReply(*this, output, outputLength)) {
    ReceivePrivateData(*this, output, privateData, privateDataLength);
  }
  // Also after the soft failures above, which is meant.
  KALO_LOG(kTraceLevel) << "Everything went well!";
}
