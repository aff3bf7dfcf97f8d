#pragma once

#include "oscl/types.h"

OSCL_BEGIN_C

/* Read and write whole files. Each function opens the file, transfers the bytes with one system
 * call and closes the file, even on failure. It stores the code of the failed step in gLastError,
 * or 0. Any thread, but there is no locking between two writers of one file. */

/* Returns the content of the file: `*size` bytes without a NUL, which the caller releases with
 * FreeMem. Returns null and sets `*size` to 0 if the file cannot be opened or read, if memory is
 * exhausted (code 1), if `size` is null (code 2), if the file is empty (code 0), and if one read
 * returns less than the whole file (code 0), which is always so above 2 GiB. The size of a file of
 * 4 GiB or more is taken modulo 2^32. The second argument is not used. */
void* OSCL_ReadFile(const char* path, void* unused, uint32_t* size);

/* Writes `length` bytes at the start of the file, which is created if missing and not truncated: a
 * longer file keeps the bytes after them. Returns 0 or E_FAIL. A short write, for example on a full
 * disk, is not detected. */
HRESULT OSCL_WriteFile(const char* path, const void* data, uint32_t length);

/* Like OSCL_WriteFile, but writes at the end of the file. */
HRESULT OSCL_AppendFile(const char* path, const void* data, uint32_t length);

OSCL_END_C
