#pragma once

#include "oscl/types.h"

OSCL_BEGIN_C

/* A whole file in one call. Each opens, moves the bytes with one system call, and closes again, on
 * failure too; a failure leaves the code of the failing step in gLastError, a success 0. Any
 * thread; nothing keeps two writers of one file apart. */

/* Returns the content of the file, `*size` bytes without a NUL, which the caller releases with
 * FreeMem. Returns null, with `*size` 0, when the file cannot be opened or read whole, when memory
 * is short (code 1), when `size` is null (code 2), and for an empty file or one that gave less than
 * its size in one call (code 0), as any of more than 2 GiB does. A file of 4 GiB or more is taken
 * for its size modulo 2^32. The second argument is not used. */
void* OSCL_ReadFile(const char* path, void* unused, uint32_t* size);

/* Writes `length` bytes over the start of the file, created when missing: what a longer file holds
 * after them stays. Returns 0, or E_FAIL. A write cut short, by a full disk for instance, is
 * not detected. */
HRESULT OSCL_WriteFile(const char* path, const void* data, uint32_t length);

/* As OSCL_WriteFile, after the end of the file. */
HRESULT OSCL_AppendFile(const char* path, const void* data, uint32_t length);

OSCL_END_C
