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

// One connection to one firmware client over "/dev/zuli". ClientSession creates and owns it. It has
// no lock: only one thread at a time may use it. Device failures are thrown as std::runtime_error.
class CpDremSession {
 public:
  // Connects. `clientGuid` must outlive the session; `parent` is not used and may be null.
  // Contract: if it throws, the connect record leaks, and so does a descriptor that could not be
  // bound to the client.
  CpDremSession(const _GUID* clientGuid, CpDremSession* parent);
  CpDremSession(const CpDremSession&) = delete;
  CpDremSession& operator=(const CpDremSession&) = delete;

  // Disconnects.
  ~CpDremSession();

  // Opens the device and binds it to the client. Throws "Cannot open ZULI device.", or "Cannot
  // connect to ZULI device." with the descriptor still open.
  void Connect();

  // Closes the descriptor and keeps its number in deviceFd. Never throws.
  void Disconnect();

  // Calls Disconnect, then Connect, without a pause.
  void Reconnect();

  // Transfer one message with one read or write of `length` bytes, the size of `buffer`. A short
  // count is a success. If the device is lost (ENODEV), they reconnect up to five times and retry
  // after each reconnect but the fifth. Return the byte count, or -1 with the errno of the last
  // call. Throw whatever Reconnect throws.
  int ReadFromZuli(unsigned char* buffer, unsigned int length);
  int WriteToZuli(unsigned char* buffer, unsigned int length);

  // Writes the request, reads the reply and, if the reply's status is negative, reads 16 bytes of
  // private data. Lengths are in bytes; `input` and `output` hold at least a message header,
  // `privateData` at least 16 bytes. The exchange ends early, without an error, at a null `input`
  // or `output`, at a deviceFd of -1, and at a null private-data argument when private data
  // follows. `privateDataLength` is written only if private data was read. Throws if a transfer
  // fails.
  void IoMessage(unsigned char* input, unsigned int inputLength, unsigned char* output,
                 unsigned int outputLength, unsigned char* privateData,
                 unsigned int* privateDataLength);

  // Issues the ioctl `request` and recovers like a transfer. The kernel driver writes its result
  // through `argp`. Throws "Error sending IOCTL to ZULI.", also after five recoveries, and whatever
  // Reconnect throws.
  void SendIoctlToZuli(int request, void* argp);

  // Do nothing and ignore all arguments.
  void IoctlAllocWrapper(unsigned char* buffer, unsigned int length, unsigned char* output);
  void IoctlFreeWrapper(unsigned char* buffer, unsigned int length);

  // Identifies the client by its address, not by the bytes that it points to.
  const _GUID* clientGuid;
  // -1 after a failed open; never reset after a close.
  int32_t deviceFd;
  // Owned. Holds the client's properties after Connect.
  ZuliConnectRecord* connectRecord;
};
static_assert(sizeof(CpDremSession) == 24 && offsetof(CpDremSession, deviceFd) == 8 &&
              offsetof(CpDremSession, connectRecord) == 16);
