#pragma once

#include "oscl/types.h"

OSCL_BEGIN_C

/* Events, waits, watches and debug output, which this platform does not have. These functions let
 * shared code link and run. They never fail. Those that report a success store 0 in gLastError; the
 * others do not change it. Any thread. */

typedef void (*OSCL_WAIT_CALLBACK)(void* context, uint8_t timedOut);

/* Returns the constant 1 and stores 0 in gLastError. There is no event object: do not wait for the
 * result and do not close it (CloseHandle would close file descriptor 1). */
HANDLE CreateEventEx(void* security, const char* name, uint32_t flags, uint32_t access);

/* Registers nothing, stores 0 in gLastError and returns 1. */
HANDLE RegisterWaitForSingleObjectEx(HANDLE object, OSCL_WAIT_CALLBACK callback, void* context,
                                     uint32_t milliseconds, uint32_t flags);

/* Registers nothing, stores a null handle in `*wait`, stores 0 in gLastError and returns 1. `wait`
 * must not be null. */
BOOL RegisterWaitForSingleObject(HANDLE* wait, HANDLE object, OSCL_WAIT_CALLBACK callback,
                                 void* context, uint32_t milliseconds, uint32_t flags);

/* Stores 0 in gLastError and returns 1. */
BOOL UnregisterWaitEx(HANDLE wait, HANDLE completion);

/* Does nothing: the registry has no watchers. */
void NotifyRegistryChange(void);

/* Watches nothing, stores 0 in gLastError and returns 0. */
uint32_t RegNotifyChangeKeyValue(HKEY key, BOOL watchSubtree, uint32_t filter, HANDLE event,
                                 BOOL asynchronous);

/* Do nothing and ignore all arguments. */
void DoxDebugBreak(const char* reason, ...);
void DoxPrintMessage(uint32_t level, const char* format, ...);

/* Expands nothing: returns 0 and writes nothing. */
uint32_t ExpandEnvironmentStrings(const char* source, char* destination, uint32_t size);

OSCL_END_C
