#pragma once

/* For C++ only. */
#ifndef __cplusplus
#error \
    "transport/cp_drem_session.h is for C++ only; C drivers include api/kalo_dll.h and api/kalo_dll_state.h"
#endif

#include <cstddef>
#include <cstdint>

#include "oscl/guid.h"

union ZuliConnectRecord;

// One open connection to one firmware client over "/dev/zuli". Made by ClientSession, which owns
// it. Nothing in it is locked: one thread at a time. Failures of the device are thrown as
// std::runtime_error.
class CpDremSession {
 public:
  // Connects. `clientGuid` must outlive the session; `parent` is not used and may be null.
  // Contract: when it throws, the connect record is not freed, nor the descriptor closed that could
  // not be bound to the client.
  CpDremSession(const _GUID* clientGuid, CpDremSession* parent);
  CpDremSession(const CpDremSession&) = delete;
  CpDremSession& operator=(const CpDremSession&) = delete;

  // Disconnects.
  ~CpDremSession();

  // Opens the device and binds it to the client. Throws "Cannot open ZULI device." or, with the
  // descriptor left open, "Cannot connect to ZULI device.".
  void Connect();

  // Closes the descriptor, whose number stays in deviceFd. Never throws.
  void Disconnect();

  // Disconnect, then Connect, at once.
  void Reconnect();

  // Transfer one whole message: one read or write of `length` bytes, which may be short. A lost
  // device (ENODEV) is reconnected, five times at most, and the transfer repeated after all but the
  // fifth reconnect, which is the last act. Return the byte count, or -1 with errno as the last
  // call left it. Throw what Reconnect throws. `buffer` holds `length` bytes.
  int ReadFromZuli(unsigned char* buffer, unsigned int length);
  int WriteToZuli(unsigned char* buffer, unsigned int length);

  // One exchange: writes the request, reads the reply and, when the reply's status is negative,
  // reads 16 bytes of private data. Lengths are in bytes; `input` and `output` hold at least a
  // message header, `privateData` at least 16 bytes. A null `input` or `output`, a deviceFd of -1,
  // and null private arguments when private data is waiting, end the exchange early and normally.
  // `privateDataLength` is written only when private data was read. Throws when a transfer fails.
  void IoMessage(unsigned char* input, unsigned int inputLength, unsigned char* output,
                 unsigned int outputLength, unsigned char* privateData,
                 unsigned int* privateDataLength);

  // Issues `request` on the descriptor, with the recovery of a transfer; what the driver wrote
  // through `argp` is the result. Throws "Error sending IOCTL to ZULI.", also after five
  // recoveries, and what Reconnect throws.
  void SendIoctlToZuli(int request, void* argp);

  // Do nothing, whatever the arguments.
  void IoctlAllocWrapper(unsigned char* buffer, unsigned int length, unsigned char* output);
  void IoctlFreeWrapper(unsigned char* buffer, unsigned int length);

  // Sessions are found by this pointer, never by the bytes that it points to.
  const _GUID* clientGuid;
  // -1 after a failed open; never reset after a close.
  int32_t deviceFd;
  // Owned. Holds the client's properties once connected.
  ZuliConnectRecord* connectRecord;
};
static_assert(sizeof(CpDremSession) == 24 && offsetof(CpDremSession, deviceFd) == 8 &&
              offsetof(CpDremSession, connectRecord) == 16);
