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

// What a driver's handle points to: the connections to one or more firmware clients, and the last
// error of a call on this handle. Clients are named by the addresses of the constants below; a copy
// of the bytes names none. Nothing in it is locked: the driver serialises the use of one session.
class ClientSession {
 public:
  static const _GUID KALO_CLIENT_GUID;
  static const _GUID FENU_CLIENT_GUID;
  static const _GUID SAB_CLIENT_GUID;

  // No connection; lastErrorText is left as the memory was.
  ClientSession();
  ClientSession(const ClientSession&) = delete;
  ClientSession& operator=(const ClientSession&) = delete;

  // Closes every connection, in order.
  ~ClientSession();

  // The client that serves a command. Any thread.
  static const _GUID* CommandIdToGuid(unsigned int commandId);

  // Opens one more connection, a second one to the same client included. Throws std::runtime_error
  // when the device fails; nothing is added then.
  void ConnectClient(const _GUID* guid);

  // The same for a client that is not connected yet while the parent client is; the new connection
  // does not depend on the parent's. Throws std::runtime_error.
  void ConnectClient(const _GUID* guid, const _GUID* parentGuid);

  // Closes the first connection to the client. Throws std::logic_error when there is none.
  void DisconnectClient(const _GUID* guid);

  // Closes every connection, in order.
  void DisconnectAllClients();

  // The first connection to the client, or null. It stays owned by this session.
  CpDremSession* GetDremSession(const _GUID* guid);

  // The connection that serves a command. Throws std::logic_error when there is none.
  CpDremSession* GetDremSession(unsigned int commandId);

  // Sends a request to the only connection, or with several to the one that serves its command, and
  // takes the reply. Lengths are in bytes; `privateData` holds 16 bytes, and `privateDataLength`
  // receives how many were read; either may be null. With a null `input` or `output` nothing, or no
  // reply, is transferred. Throws std::logic_error without a connection
  // for the command, KaloException for a length below the header's 16 bytes, and what
  // CpDremSession::IoMessage throws.
  void IoMessage(unsigned char* input, unsigned int inputLength, unsigned char* output,
                 unsigned int outputLength, unsigned char* privateData,
                 unsigned int* privateDataLength);

  // Always throws std::runtime_error.
  void IoControl(unsigned char* input, unsigned int inputLength, unsigned char* output,
                 unsigned int outputLength);

  // Do nothing on the only connection. Throw std::logic_error with none, or with several.
  void IoctlAllocWrapper(unsigned char* buffer, unsigned int length, unsigned char* output);
  void IoctlFreeWrapper(unsigned char* buffer, unsigned int length);

  // Records an error of this session; without a status it is stored as -1. At most 1024 characters
  // are kept, without a NUL, in front of what an earlier, longer text left.
  void storeErrInfo(KALO_DLL_STATUS status, const std::string& text);
  void storeErrInfo(const std::string& text);

  // Owned, in order of connection.
  std::vector<CpDremSession*> dremSessions;
  int32_t lastErrorStatus;
  // Not terminated, and not initialised before the first storeErrInfo: read 1024 bytes at most.
  char lastErrorText[1024];
};
static_assert(sizeof(ClientSession) == 1056 && offsetof(ClientSession, lastErrorStatus) == 24 &&
              offsetof(ClientSession, lastErrorText) == 28);
