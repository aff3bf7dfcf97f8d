#pragma once

#include "oscl/types.h"

OSCL_BEGIN_C

/* Modules: a handle is the dynamic loader's. Names and results are as the loader documents them.
 * Any thread. */

/* Loads `name`, binding its symbols when they are first used, and returns a handle that the caller
 * releases with FreeLibrary; a null name is the program itself. Returns null on failure and stores
 * the code of the errno that the loader left in gLastError: 5 for ENOENT, 2 for EINVAL, 6 for
 * EROFS, 4 for EEXIST, 16 for any other, and 0 when it left none, as glibc's does. A
 * success leaves errno as it was. */
HANDLE LoadLibrary(const char* name);
HANDLE OSCL_LoadLibrary(const char* name);

/* Releases a handle of LoadLibrary. Returns 1, or 0 with code 16; a null handle fails. */
BOOL FreeLibrary(HANDLE module);

/* FreeLibrary, with the result 0 or E_FAIL. */
HRESULT OSCL_FreeLibrary(HANDLE module);

/* The address of the symbol `name` in `module`, or null; gLastError is 0 in both cases. */
void* GetProcAddress(HANDLE module, const char* name);
void* OSCL_GetProcAddress(HANDLE module, const char* name);

/* Not available here: they write nothing, store 0 in gLastError and return 0. */
HANDLE GetModuleHandle(const char* name);
uint32_t GetModuleFileName(HANDLE module, char* path, uint32_t size);
uint32_t GetWindowsDirectory(char* path, uint32_t size);
uint32_t GetSystemWow64Directory(char* path, uint32_t size);

OSCL_END_C
