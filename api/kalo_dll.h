#pragma once

/* The entry points of libkalodll.so, for C (from C89 on) and C++ drivers. Both generations share
 * one set of sessions. No entry point lets an exception out that derives from std::exception. Apart
 * from these the library exports DllMain(void*, unsigned int, void*), with C++ linkage, which does
 * nothing and returns 1; it is not declared here, so that a driver may have a DllMain of its own.
 */

#include <stdint.h>

#include "transport/kalo_status.h"

#ifdef __cplusplus
#define KALO_STATUS enum KALO_DLL_STATUS
extern "C" {
#else
#define KALO_STATUS KALO_DLL_STATUS
#endif

/* Firmware API versions; any other value counts as not set. */
#define KALO_FIRMWARE_API_30 0x30000u
#define KALO_FIRMWARE_API_32 0x30002u

/* What KaloStateInit takes. */
typedef struct KALO_STATE_INIT_PARAMS {
  uint32_t firmwareApiVersion;
  /* 1 makes later callers under API 3.0 share the second session; anything else the first. */
  uint32_t stateInitOption;
} KALO_STATE_INIT_PARAMS;

/* Announces the firmware API version, once, before the first KaloInit3. `params` stays the
 * caller's; null changes nothing. Always 0. Takes no lock: nothing else of the library may run. */
KALO_STATUS KaloStateInit(KALO_STATE_INIT_PARAMS* params);

/* ---- Version 3: sessions by handle ---- */

/* Gives out a handle for protected-media commands and stores it in `*handle` (not null, not
 * checked). The first caller opens a session; later ones share it, or under API 3.0 a second one.
 * Without an announced version a second caller gets 0 and `*handle` stays as it was. Every call
 * sets the log's threshold to 0 again and registers one more sink for the log file. Returns 1 when
 * the device fails, 5 when the generation marker is damaged; counts are not rolled back then. The
 * handle belongs to the library and is given back with KaloCleanup3, also after a status of 5, when
 * it may name a session that is gone. Each log file stays open until unload: initialise once, or a
 * few times, in a process. Any number of threads may call it at once; not beside a cleanup or an
 * earlier call, and not once the library's objects are gone, when Android's libc ends the process
 * ("pthread_mutex_lock called on a destroyed mutex"). */
KALO_STATUS KaloInit3(void** handle);

/* Sends the request `input` and takes the reply into `output`; lengths are in bytes, at least the
 * 16 of the message header. Buffers stay the caller's. `privateData` is null or holds 16 bytes for
 * the private data after a reply of negative status; `*privateDataLength` then receives how many
 * were read. On entry a `*privateDataLength` of 9 with the tag "IOCTLHND" or "IOCTLFRE" in
 * `privateData` asks for an ioctl wrapper instead, which does nothing.
 * Returns 2 for a null handle or buffer, 3 or 4 for a short one, 1 when the transfer fails; a
 * firmware status is not a failure. A session whose device could not be opened again after a loss
 * sends nothing any more, and returns 0 with `output` as it was: clear it before the call, and take
 * a new handle after a status of 1. The handle must be live: it is used as passed. One thread at a
 * time on one handle; handles that share a session count as one. */
KALO_STATUS StartIoEx3(void* session, unsigned char* input, unsigned int inputLength,
                       unsigned char* output, unsigned int outputLength, unsigned char* privateData,
                       unsigned int* privateDataLength);

/* StartIoEx3 without private data; the same rules for threads. */
KALO_STATUS StartIo3(void* session, unsigned char* input, unsigned int inputLength,
                     unsigned char* output, unsigned int outputLength);

/* Gives a handle of KaloInit3 back; the last one of a session closes it. A handle that is not out
 * changes nothing and returns 0; 1 when closing failed, which does not happen with this transport.
 * Takes no lock: not beside KaloInit3, another cleanup, or commands on the same session. */
KALO_STATUS KaloCleanup3(void* handle);

/* The same for the wireless display, which has a session and a count of its own. `*handle` (not
 * null, not checked) receives the handle, null when the session was closed by FenuCleanup. Returns
 * 1 or the status of the failure when the device fails, and changes nothing then. None of the four
 * FENU calls takes a lock: one at a time, and not beside FENU commands. */
KALO_STATUS FenuInit3(void** handle);

/* Lowers the count; at zero closes the session of the handle as it was passed. Count and
 * handle are not compared: pass what FenuInit3 returned, once for each call. Returns 1 when closing
 * failed, as KaloCleanup3. */
KALO_STATUS FenuCleanup3(void* handle);

/* ---- Earlier generation: one session per client, without handles ---- */

/* Opens the KALO session through KaloInit3 unless the state holds the address of one, open or
 * closed; returns its status. Takes no lock: one thread at a time for all earlier calls, and not
 * beside KaloInit3 or a cleanup. A KaloInit that overtakes a KaloInit3 can lose a session. */
KALO_STATUS KaloInit(void);

/* Lowers both KALO counts and closes the sessions that reach zero. Returns the status of the last
 * session closed: 1 when closing failed, as KaloCleanup3. Takes no lock: not beside any other call
 * of either generation but FENU ones. */
KALO_STATUS KaloCleanup(void);

/* Opens the FENU session through FenuInit3 unless the state holds the address of one, open or
 * closed; returns its status. Threads as for FenuInit3. */
KALO_STATUS FenuInit(void);

/* Lowers the FENU count and closes the session at zero, and also when the count is zero already. A
 * session that the library has destroyed already is left alone. Returns 1 when closing failed, as
 * KaloCleanup3. Threads as for FenuInit3. */
KALO_STATUS FenuCleanup(void);

/* StartIoEx3 on the session that the command identifier (bytes 4 to 7 of `input`) selects: FENU for
 * 0x30000 to 0x3FFFF, KALO for all others. Returns 2, 3 or 4 for bad buffers, 6 when the session is
 * not open, and what StartIoEx3 returns. Takes no lock: one thread at a time for the commands of a
 * client, and not beside an initialisation or cleanup. */
KALO_STATUS StartIoEx(unsigned char* input, unsigned int inputLength, unsigned char* output,
                      unsigned int outputLength, unsigned char* privateData,
                      unsigned int* privateDataLength);

/* StartIoEx without private data; the same rules for threads. */
KALO_STATUS StartIo(unsigned char* input, unsigned int inputLength, unsigned char* output,
                    unsigned int outputLength);

#ifdef __cplusplus
}  // extern "C"

/* ---- With C++ linkage ---- */

/* StartIoEx3 without private data on gKaloDllState.provisioningSession, which the library never
 * sets: returns 2. */
KALO_DLL_STATUS ProvisioningStartIo(unsigned char* input, unsigned int inputLength,
                                    unsigned char* output, unsigned int outputLength);

/* Closes the connections of a session and frees it, also when closing failed: 1 then, else 0. A
 * null session is left alone; any other must be live: it is used as passed. Frees with the
 * library's own operator delete, so a driver that replaces operator new must not pass a session
 * that it made itself. Takes no lock: not beside any other use of the session. */
KALO_DLL_STATUS SessionCleanup(void* session);

/* Stores an error in the last-error record of gKaloDllState: `text` (copied; null, or longer than
 * 1023 characters, keeps the old one) and `code` under the source, `context` for source 1 only,
 * source and process id for any. No lock: a later error overwrites an earlier one, and two that are
 * recorded at the same time may leave a mixture of both. */
void SaveLastErrorInfo(_KaloDllErrorSource source, const char* text, unsigned int code,
                       void* context, unsigned int processId);
#endif

#undef KALO_STATUS
