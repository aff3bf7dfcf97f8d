#include "transport/cp_drem_session.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string_view>

#include "log/log_line.h"
#include "oscl/kept_stores.h"
#include "transport/errno_policy.h"
#include "transport/message_header.h"
#include "transport/zuli_device.h"

using logging::Hex;
using logging::kTraceLevel;
using transport::DeviceCall;
using transport::PolicyFor;

namespace {

constexpr unsigned int kPrivateDataLength = 16;

// Contract: passes a mode although the call creates nothing. Android's headers warn about this.
#ifdef __clang__
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wuser-defined-warnings"
#endif
int OpenDevice() { return open(transport::kZuliDevicePath, O_RDWR, transport::kZuliOpenMode); }
#ifdef __clang__
#pragma clang diagnostic pop
#endif

// A call on the device and its name in the log.
struct RecoverableCall {
  DeviceCall call;
  std::string_view function;
  std::string_view word;
};
constexpr RecoverableCall kRead{DeviceCall::kRead, "ReadFromZuli", "READ"};
constexpr RecoverableCall kWrite{DeviceCall::kWrite, "WriteToZuli", "WRITE"};
constexpr RecoverableCall kIoctl{DeviceCall::kIoctl, "SendIoctlToZuli", "IOCTL"};

// Reconnects after a failure if the device was lost. Returns true if the call must be repeated.
bool Recover(CpDremSession& session, const RecoverableCall& name, int attempt) {
  const int error = errno;
  if (PolicyFor(name.call, error).remedy != transport::Remedy::kReconnect) {
    KALO_LOG_AS(kTraceLevel, name.function)
        << "ZULI device is lost in " << name.word
        << " call and recovering failed with errorno = " << error;
    return false;
  }
  KALO_LOG_AS(kTraceLevel, name.function)
      << "ZULI device is lost in " << name.word << " call with errorno = " << error
      << ". Trying to reconnect (attempt #" << attempt << ").";
  session.Reconnect();
  // Contract: reconnects a last time although no call follows.
  return attempt != transport::kMaxRecoveries;
}

// Runs systemCall(descriptor). If the device is lost, reconnects and runs it again, without a
// delay. Returns the result of the call, or -1 with the errno of the failed call or of the last
// reconnect. Throws whatever Reconnect throws.
template <typename SystemCall>
ssize_t CallWithRecovery(CpDremSession& session, const RecoverableCall& name,
                         SystemCall systemCall) {
  for (int attempt = 1;; ++attempt) {
    const ssize_t result = systemCall(session.deviceFd);
    if (result != -1) {
      KALO_LOG_AS(kTraceLevel, name.function) << name.word << " call is successful.";
      return result;
    }
    if (!Recover(session, name, attempt)) return -1;
  }
}

constexpr char kIoMessage[] = "IoMessage";

// Logs four messages, each with its own function and tag. Only the fourth ends in a line feed.
void LogHeader(const char* title, const unsigned char* message) {
  const KaloMessageHeader header = transport::HeaderOf(message);
  KALO_LOG_AS(kTraceLevel, kIoMessage) << title << Hex(header.word0);
  KALO_LOG_AS(kTraceLevel, kIoMessage) << "| " << Hex(header.commandId);
  KALO_LOG_AS(kTraceLevel, kIoMessage) << "| " << Hex(header.status);
  KALO_LOG_AS(kTraceLevel, kIoMessage) << "| " << Hex(header.word3) << '\n';
}

[[noreturn]] void FailTransfer(DeviceCall call, const char* title, const unsigned char* message) {
  const int error = errno;
  const char* text = PolicyFor(call, error).thrown;
  KALO_LOG_AS(kTraceLevel, kIoMessage) << text << " errno = " << error << '.';
  LogHeader(title, message);
  throw std::runtime_error(text);
}

constexpr char kInputTitle[] = "ZULI Input Msg ";
constexpr char kOutputTitle[] = "ZULI Output Msg ";

// Returns false if nothing can be sent.
bool SendRequest(CpDremSession& session, unsigned char* input, unsigned int length) {
  if (session.deviceFd == -1 || input == nullptr) {
    KALO_LOG_AS(kTraceLevel, kIoMessage) << "Error in IOMessage input parameters";
    return false;
  }
  const int written = session.WriteToZuli(input, length);
  if (written == -1) FailTransfer(DeviceCall::kWrite, kInputTitle, input);
  KALO_LOG_AS(kTraceLevel, kIoMessage) << "Write to ZULI bytes = " << written << '.';
  return true;
}

// Returns true if private data follows the reply. Contract: accepts a short reply and examines
// whatever the buffer then holds as the status.
bool ReceiveReply(CpDremSession& session, unsigned char* output, unsigned int length) {
  if (session.deviceFd == -1 || output == nullptr) {
    KALO_LOG_AS(kTraceLevel, kIoMessage) << "Error in IOMessage output parameters";
    return false;
  }
  if (session.ReadFromZuli(output, length) == -1) {
    FailTransfer(DeviceCall::kRead, kOutputTitle, output);
  }
  return transport::HeaderOf(output).status < 0;
}

void ReceivePrivateData(CpDremSession& session, const unsigned char* output,
                        unsigned char* privateData, unsigned int* privateDataLength) {
  KALO_LOG_AS(kTraceLevel, kIoMessage) << "Received a status with the TEV private Data but set.";
  if (privateData == nullptr || privateDataLength == nullptr) {
    // Contract: the block stays unread in the kernel's driver.
    KALO_LOG_AS(kTraceLevel, kIoMessage) << "Error in TEV input private data.";
    return;
  }
  const int received = session.ReadFromZuli(privateData, kPrivateDataLength);
  if (received == -1) {
    const int error = errno;
    KALO_LOG_AS(kTraceLevel, kIoMessage) << "Error reading TEV private data.";
    LogHeader(kOutputTitle, output);
    throw std::runtime_error(PolicyFor(DeviceCall::kReadPrivateData, error).thrown);
  }
  *privateDataLength = static_cast<unsigned int>(received);
  KALO_LOG_AS(kTraceLevel, kIoMessage) << "Read " << Hex(received) << " bytes of TEV private Data.";
}

void ExplainFailure(int error) {
  const auto& explanation = PolicyFor(DeviceCall::kIoctl, error).explanation;
  if (explanation[0] == nullptr) {
    KALO_LOG_AS(kTraceLevel, kIoctl.function)
        << "Error sending IOCTL to ZULI. errno = " << error << '.';
  }
  for (const char* line : explanation) {
    if (line != nullptr) KALO_LOG_AS(kTraceLevel, kIoctl.function) << line;
  }
}

// A separate function, so that leak checkers can recognise this intended leak.
ZuliConnectRecord* NewConnectRecord() { return new ZuliConnectRecord(); }

}  // namespace

CpDremSession::CpDremSession(const _GUID* guid, CpDremSession*)
    : clientGuid(guid), deviceFd(-1), connectRecord(NewConnectRecord()) {
  // Contract: if the connection fails, the record leaks, so no smart pointer owns it.
  Connect();
  KALO_LOG(kTraceLevel) << "Open ZULI.";
}

CpDremSession::~CpDremSession() {
  Disconnect();
  delete connectRecord;
  connectRecord = nullptr;
  oscl::KeepStores(this);
  KALO_LOG(kTraceLevel) << "Closed ZULI.";
}

void CpDremSession::Connect() {
  deviceFd = OpenDevice();
  if (deviceFd == -1) {
    const int error = errno;
    KALO_LOG(kTraceLevel) << "open() for ZUL device " << transport::kZuliDevicePath
                          << " failed with errno = " << error << '.';
    throw std::runtime_error(PolicyFor(DeviceCall::kOpen, error).thrown);
  }
  KALO_LOG(kTraceLevel) << "ZULI FD: " << deviceFd;

  connectRecord->inClientGuid = *clientGuid;
  if (ioctl(deviceFd, IOCTL_ZULI_CONNECT_CLIENT, connectRecord) == -1) {
    const int error = errno;
    KALO_LOG(kTraceLevel) << "ioctl(IOCTL_ZULI_CONNECT_CLIENT) failed with errno = " << error
                          << '.';
    // Contract: leaves the descriptor open in deviceFd.
    throw std::runtime_error(PolicyFor(DeviceCall::kConnect, error).thrown);
  }
}

void CpDremSession::Disconnect() {
  if (close(deviceFd) == -1) {
    const int error = errno;
    KALO_LOG(kTraceLevel) << "close() for ZUL device " << transport::kZuliDevicePath
                          << " failed with errno = " << error << '.';
  }
}

void CpDremSession::Reconnect() {
  Disconnect();
  Connect();
}

int CpDremSession::ReadFromZuli(unsigned char* buffer, unsigned int length) {
  return static_cast<int>(CallWithRecovery(
      *this, kRead, [=](int descriptor) { return read(descriptor, buffer, length); }));
}

int CpDremSession::WriteToZuli(unsigned char* buffer, unsigned int length) {
  return static_cast<int>(CallWithRecovery(
      *this, kWrite, [=](int descriptor) { return write(descriptor, buffer, length); }));
}

void CpDremSession::IoMessage(unsigned char* input, unsigned int inputLength, unsigned char* output,
                              unsigned int outputLength, unsigned char* privateData,
                              unsigned int* privateDataLength) {
  if (connectRecord != nullptr) {
    const ZuliConnectRecord::Properties& client = connectRecord->out;
    KALO_LOG(kTraceLevel) << "fd = " << Hex(deviceFd)
                          << ", Version = " << Hex(client.protocolVersion)
                          << ", MaxLen = " << Hex(client.maxMessageLength) << '.';
  }
  if (SendRequest(*this, input, inputLength) && ReceiveReply(*this, output, outputLength)) {
    ReceivePrivateData(*this, output, privateData, privateDataLength);
  }
  // Contract: logs this even if the exchange ended early without an error.
  KALO_LOG(kTraceLevel) << "Everything went well!";
}

void CpDremSession::SendIoctlToZuli(int request, void* argp) {
  // Converted first, because ioctl's wider parameter would sign-extend a negative int.
  const auto number = static_cast<unsigned int>(request);
  const ssize_t result = CallWithRecovery(
      *this, kIoctl, [=](int descriptor) -> ssize_t { return ioctl(descriptor, number, argp); });
  if (result != -1) return;
  // Contract: reads errno again: after five recoveries it is the errno of the last reconnect.
  const int error = errno;
  ExplainFailure(error);
  throw std::runtime_error(PolicyFor(DeviceCall::kIoctl, error).thrown);
}

void CpDremSession::IoctlAllocWrapper(unsigned char*, unsigned int, unsigned char*) {}

void CpDremSession::IoctlFreeWrapper(unsigned char*, unsigned int) {}
