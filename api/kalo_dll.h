#pragma once

/* The entry points of libkalodll.so, for C (C89 and later) and C++ drivers. Both generations share
 * one set of sessions. No entry point throws an exception that derives from std::exception. The
 * library also exports DllMain(void*, unsigned int, void*) with C++ linkage, which does nothing and
 * returns 1. It is not declared here, so that a driver can define its own DllMain. */

#include <stdint.h>

#include "transport/kalo_status.h"

#ifdef __cplusplus
#define KALO_STATUS enum KALO_DLL_STATUS
extern "C" {
#else
#define KALO_STATUS KALO_DLL_STATUS
#endif

/* Firmware API versions. Any other value counts as not announced. */
#define KALO_FIRMWARE_API_30 0x30000u
#define KALO_FIRMWARE_API_32 0x30002u

/* The argument of KaloStateInit. */
typedef struct KALO_STATE_INIT_PARAMS {
  uint32_t firmwareApiVersion;
  /* API 3.0 only: with 1, the third and later callers share the second session, otherwise the
   * first. */
  uint32_t stateInitOption;
} KALO_STATE_INIT_PARAMS;

/* Announces the firmware API version. Call it once, before the first KaloInit3, while no other call
 * of the library runs. `params` is only read; null changes nothing. Always returns 0. */
KALO_STATUS KaloStateInit(KALO_STATE_INIT_PARAMS* params);

/* ---- Version 3: sessions with handles ---- */

/* Stores a handle for protected-media commands in `*handle` (`handle` must not be null). The first
 * call opens a session. Later calls share it or, with API 3.0, share a second one. If no version
 * was announced, a second call returns 0 and does not write `*handle`.
 *
 * Returns 1 if the device fails, and 5 if kaloInterfaceVersion is neither 0 nor 3; counts are not
 * rolled back then. The library owns the handle. Release it with KaloCleanup3, even after a status
 * of 5, when its session may already be destroyed.
 *
 * Each call sets the log's threshold to 0 and adds a sink for the log file, which keeps a
 * descriptor open until unload: initialise once per process, or a few times. Any number of threads
 * may call it at the same time, but not during a cleanup or a call of the earlier generation, and
 * not after the library's objects are destroyed: Android's libc then aborts the process
 * ("pthread_mutex_lock called on a destroyed mutex"). */
KALO_STATUS KaloInit3(void** handle);

/* Sends the request `input` and reads the reply into `output`. Lengths are in bytes and must be at
 * least 16, the size of the message header. `privateData` is null or holds 16 bytes, which receive
 * the private data that follows a reply with a negative status; `*privateDataLength` then receives
 * the number of bytes. If `*privateDataLength` is 9 on entry and `privateData` holds the tag
 * "IOCTLHND" or "IOCTLFRE", the call requests an ioctl wrapper, which does nothing.
 *
 * Returns 2 for a null handle or buffer, 3 or 4 for a buffer shorter than the header, and 1 if the
 * transfer fails. A negative firmware status is not a failure. After a loss, a session whose device
 * could not be reopened sends nothing, returns 0 and does not write `output`: clear `output` before
 * the call, and take a new handle after a status of 1.
 *
 * The handle is used as passed, so its session must be open. Only one thread at a time may use a
 * handle; handles that share a session count as one. */
KALO_STATUS StartIoEx3(void* session, unsigned char* input, unsigned int inputLength,
                       unsigned char* output, unsigned int outputLength, unsigned char* privateData,
                       unsigned int* privateDataLength);

/* StartIoEx3 without private data. The same thread rules apply. */
KALO_STATUS StartIo3(void* session, unsigned char* input, unsigned int inputLength,
                     unsigned char* output, unsigned int outputLength);

/* Releases a handle of KaloInit3. Releasing the last handle of a session closes it. An unknown
 * handle changes nothing and returns 0. Returns 1 if closing fails, which does not happen with this
 * transport. Takes no lock: do not call it during KaloInit3, another cleanup, or a command on the
 * same session. */
KALO_STATUS KaloCleanup3(void* handle);

/* Stores a handle for wireless-display commands in `*handle` (`handle` must not be null). The
 * wireless display has its own session and count. The handle is null if FenuCleanup closed the
 * session. If the device fails, returns 1 or the status of the failure and changes nothing. The
 * four FENU calls take no lock: call one at a time, and not during a FENU command. */
KALO_STATUS FenuInit3(void** handle);

/* Lowers the count and, at zero, closes the session of the handle as passed. The handle is not
 * checked: pass what FenuInit3 returned, once for each call. Does nothing to the session that the
 * library destroyed last on this side. Returns 1 if closing fails, like KaloCleanup3. The thread
 * rules of FenuInit3 apply. */
KALO_STATUS FenuCleanup3(void* handle);

/* ---- Earlier generation: one session per client, without handles ---- */

/* Calls KaloInit3 and returns its status, unless kaloSessionA holds the address of a session, open
 * or closed. Takes no lock: use one thread for all earlier calls, and do not call it during
 * KaloInit3 or a cleanup. A KaloInit that overlaps a KaloInit3 can lose a session. */
KALO_STATUS KaloInit(void);

/* Lowers both KALO counts and closes each session whose count reaches zero. Returns the status of
 * the session closed last: 1 if closing fails, like KaloCleanup3. Takes no lock: do not call it
 * during any other call except FENU calls. */
KALO_STATUS KaloCleanup(void);

/* Calls FenuInit3 and returns its status, unless fenuSession holds the address of a session, open
 * or closed. The thread rules of FenuInit3 apply. */
KALO_STATUS FenuInit(void);

/* Lowers the FENU count and closes the session if the count reaches zero or already was zero. Never
 * closes a session that the library has destroyed. Returns 1 if closing fails, like KaloCleanup3.
 * The thread rules of FenuInit3 apply. */
KALO_STATUS FenuCleanup(void);

/* Calls StartIoEx3 on the session that the command identifier (bytes 4 to 7 of `input`) selects:
 * FENU for 0x30000 to 0x3FFFF, KALO for all others. Returns 2, 3 or 4 for invalid buffers, 6 if the
 * session is not open, and otherwise the status of StartIoEx3. Takes no lock: only one thread at a
 * time may send commands of one client, and not during an initialisation or cleanup. */
KALO_STATUS StartIoEx(unsigned char* input, unsigned int inputLength, unsigned char* output,
                      unsigned int outputLength, unsigned char* privateData,
                      unsigned int* privateDataLength);

/* StartIoEx without private data. The same thread rules apply. */
KALO_STATUS StartIo(unsigned char* input, unsigned int inputLength, unsigned char* output,
                    unsigned int outputLength);

#ifdef __cplusplus
}  // extern "C"

/* ---- With C++ linkage ---- */

/* Calls StartIoEx3 without private data on gKaloDllState.provisioningSession. The library never
 * sets this session, so the call returns 2. */
KALO_DLL_STATUS ProvisioningStartIo(unsigned char* input, unsigned int inputLength,
                                    unsigned char* output, unsigned int outputLength);

/* Closes the connections of a session and frees it. Returns 1 if closing fails, and frees it even
 * then; otherwise returns 0. Does nothing for a null session, and for the session that the library
 * destroyed last on the KALO or the FENU side. Any other session is used as passed, so it must be
 * open. Frees with the library's own operator delete: a driver that replaces operator new must not
 * pass a session that it created itself. Takes no lock: do not call it during any other use of the
 * session. */
KALO_DLL_STATUS SessionCleanup(void* session);

/* Stores an error in the last-error record of gKaloDllState: the copied `text` and the `code` of
 * that source, the source and the process id, and for source 1 also the `context`. A text that is
 * null or longer than 1023 characters leaves the old text. Takes no lock: a later error overwrites
 * an earlier one, and two threads may mix their texts. */
void SaveLastErrorInfo(_KaloDllErrorSource source, const char* text, unsigned int code,
                       void* context, unsigned int processId);
#endif

#undef KALO_STATUS
