#pragma once

#include "oscl/types.h"

OSCL_BEGIN_C

/* Modules. A handle is one of the dynamic loader, whose rules apply to names. Any thread. */

/* Loads `name`, binding its symbols at their first use. Returns a handle, which the caller releases
 * with FreeLibrary; a null name stands for the program itself. On failure it returns null and
 * stores the code of the loader's errno in gLastError: 5 for ENOENT, 2 for EINVAL, 6 for EROFS, 4
 * for EEXIST, 16 for any other, and 0 if the loader sets no errno, as glibc's often does. errno
 * changes only if the loader sets it after a failure. */
HANDLE LoadLibrary(const char* name);
HANDLE OSCL_LoadLibrary(const char* name);

/* Releases a handle of LoadLibrary. Returns 1, or 0 with code 16, also for a null handle. */
BOOL FreeLibrary(HANDLE module);

/* Calls FreeLibrary and returns 0 or E_FAIL. */
HRESULT OSCL_FreeLibrary(HANDLE module);

/* Returns the address of the symbol `name` in `module`, or null. Stores 0 in gLastError either way.
 */
void* GetProcAddress(HANDLE module, const char* name);
void* OSCL_GetProcAddress(HANDLE module, const char* name);

/* Not available on this platform: they write nothing, store 0 in gLastError and return 0. */
HANDLE GetModuleHandle(const char* name);
uint32_t GetModuleFileName(HANDLE module, char* path, uint32_t size);
uint32_t GetWindowsDirectory(char* path, uint32_t size);
uint32_t GetSystemWow64Directory(char* path, uint32_t size);

OSCL_END_C
