#include <unistd.h>

#include "transport/cp_drem_session.h"
#include "transport/device_recovery.h"

int CpDremSession::ReadFromZuli(unsigned char* buffer, unsigned int length) {
  return static_cast<int>(transport::CallWithRecovery(
      *this, {transport::DeviceCall::kRead, __func__, "READ"},
      [=](int descriptor) { return read(descriptor, buffer, length); }));
}

int CpDremSession::WriteToZuli(unsigned char* buffer, unsigned int length) {
  return static_cast<int>(transport::CallWithRecovery(
      *this, {transport::DeviceCall::kWrite, __func__, "WRITE"},
      [=](int descriptor) { return write(descriptor, buffer, length); }));
}
