#pragma once

/* For C++ only. */
#ifndef __cplusplus
#error \
    "transport/client_session.h is for C++ only; C drivers include api/kalo_dll.h and api/kalo_dll_state.h"
#endif

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "oscl/guid.h"
#include "transport/kalo_status.h"

class CpDremSession;

// The object behind a driver's handle: the connections to one or more firmware clients, and the
// last error on this handle. Clients are identified by the addresses of the constants below, not by
// their bytes. A session has no lock: the driver serialises its use.
class ClientSession {
 public:
  static const _GUID KALO_CLIENT_GUID;
  static const _GUID FENU_CLIENT_GUID;
  static const _GUID SAB_CLIENT_GUID;

  // Creates a session without connections. lastErrorText is not initialised.
  ClientSession();
  ClientSession(const ClientSession&) = delete;
  ClientSession& operator=(const ClientSession&) = delete;

  // Closes every connection, in order.
  ~ClientSession();

  // Returns the client that serves a command. Any thread.
  static const _GUID* CommandIdToGuid(unsigned int commandId);

  // Opens another connection, even to a client that is already connected. If the device fails,
  // throws std::runtime_error and adds nothing.
  void ConnectClient(const _GUID* guid);

  // The same, but requires that the client is not connected and that the parent client is. The new
  // connection does not depend on the parent's. Throws std::runtime_error.
  void ConnectClient(const _GUID* guid, const _GUID* parentGuid);

  // Closes the first connection to the client. Throws std::logic_error if there is none.
  void DisconnectClient(const _GUID* guid);

  // Closes every connection, in order.
  void DisconnectAllClients();

  // Returns the first connection to the client, which this session owns, or null.
  CpDremSession* GetDremSession(const _GUID* guid);

  // Returns the connection that serves a command. Throws std::logic_error if there is none.
  CpDremSession* GetDremSession(unsigned int commandId);

  // Sends a request and reads the reply. A session with one connection uses it for every command; a
  // session with several uses the one that serves the command. Lengths are in bytes. `privateData`
  // holds 16 bytes and `privateDataLength` receives the number read; either may be null. A null
  // `input` transfers nothing; a null `output` reads no reply. Throws std::logic_error if no
  // connection serves the command, KaloException if a length is below 16, the header's size, and
  // whatever CpDremSession::IoMessage throws.
  void IoMessage(unsigned char* input, unsigned int inputLength, unsigned char* output,
                 unsigned int outputLength, unsigned char* privateData,
                 unsigned int* privateDataLength);

  // Always throws std::runtime_error.
  void IoControl(unsigned char* input, unsigned int inputLength, unsigned char* output,
                 unsigned int outputLength);

  // Do nothing if there is exactly one connection, and otherwise throw std::logic_error.
  void IoctlAllocWrapper(unsigned char* buffer, unsigned int length, unsigned char* output);
  void IoctlFreeWrapper(unsigned char* buffer, unsigned int length);

  // Store the last error of this session; without a status, the status is -1. Copy at most 1024
  // characters without a NUL, so the end of a longer earlier text remains.
  void storeErrInfo(KALO_DLL_STATUS status, const std::string& text);
  void storeErrInfo(const std::string& text);

  // Owned, in the order in which they were connected.
  std::vector<CpDremSession*> dremSessions;
  int32_t lastErrorStatus;
  // Has no terminator and is not initialised before the first storeErrInfo: read at most 1024
  // bytes.
  char lastErrorText[1024];
};
static_assert(sizeof(ClientSession) == 1056 && offsetof(ClientSession, lastErrorStatus) == 24 &&
              offsetof(ClientSession, lastErrorText) == 28);
