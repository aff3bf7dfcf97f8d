#pragma once

/* For C++ only. */
#ifndef __cplusplus
#error \
    "transport/zuli_device.h is for C++ only; C drivers include api/kalo_dll.h and api/kalo_dll_state.h"
#endif

#include <cstdint>

#include "oscl/guid.h"

// The character device of the security engine's firmware interface.
namespace transport {

constexpr char kZuliDevicePath[] = "/dev/zuli";

// Contract: passed to open() as the mode, where it has no effect. The descriptor is not
// synchronous.
constexpr unsigned int kZuliOpenMode = 0x101000;

}  // namespace transport

// Binds an open descriptor to the firmware client with the GUID in the record.
constexpr unsigned int IOCTL_ZULI_CONNECT_CLIENT = 0xC0104801;

// The argument of the connect request, which the kernel overwrites with the result.
union ZuliConnectRecord {
  _GUID inClientGuid;
  struct Properties {
    uint32_t maxMessageLength;
    uint8_t protocolVersion;
    uint8_t reserved[3];
  } out;
};
static_assert(sizeof(ZuliConnectRecord) == 16, "the record is part of the device protocol");
