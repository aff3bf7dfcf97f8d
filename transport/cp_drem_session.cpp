#include "transport/cp_drem_session.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "log/log_line.h"
#include "transport/errno_policy.h"
#include "transport/zuli_device.h"

using logging::kTraceLevel;
using transport::DeviceCall;
using transport::PolicyFor;

namespace {

// The mode is meant, although nothing is created, to which Android's libc objects.
#ifdef __clang__
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wuser-defined-warnings"
#endif
int OpenDevice() { return open(transport::kZuliDevicePath, O_RDWR, transport::kZuliOpenMode); }
#ifdef __clang__
#pragma clang diagnostic pop
#endif

}  // namespace

CpDremSession::CpDremSession(const _GUID* guid, CpDremSession*)
    : clientGuid(guid), deviceFd(-1), connectRecord(new ZuliConnectRecord()) {
  // A plain pointer, not an owner: what a failed connection leaves behind is not given back.
  Connect();
  KALO_LOG(kTraceLevel) << "Open ZULI.";
}

CpDremSession::~CpDremSession() {
  Disconnect();
  delete connectRecord;
  connectRecord = nullptr;
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
    KALO_LOG(kTraceLevel) << "ioctl(IOCTL_ZULI_CONNECT_CLIENT) failed with errno = " << error << '.';
    // The descriptor stays open in deviceFd, which is meant.
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
