#pragma once

#include "oscl/types.h"

OSCL_BEGIN_C

/* Files. A handle is a file descriptor of the process. A success stores 0 in gLastError, a failure
 * the code of its errno: ENOENT 5, EEXIST 4, EINVAL 2, EROFS 6, any other 16. Any thread; calls on
 * one handle share its file position. */

#define GENERIC_READ 0x80000000u
#define GENERIC_WRITE 0x40000000u

/* How CreateFile treats a file that exists or does not. */
enum {
  CREATE_NEW = 1,        /* creates; a file that exists is an error */
  CREATE_ALWAYS = 2,     /* creates when missing; does NOT truncate a file that exists */
  OPEN_EXISTING = 3,     /* a missing file is an error */
  OPEN_ALWAYS = 4,       /* when that fails, creates and opens for reading AND writing */
  TRUNCATE_EXISTING = 5, /* a missing file is an error */
};

/* Origins of SetFilePointer. */
enum { FILE_BEGIN = 0, FILE_CURRENT = 1, FILE_END = 2 };

/* Opens `name`. Returns a handle, which the caller closes with CloseHandle, or
 * INVALID_HANDLE_VALUE. `access` must be GENERIC_READ, GENERIC_WRITE or both, and `disposition` one
 * of the five above; otherwise, or if `name` is null, the code is 2. A new file has the permission
 * bits 0660 minus the umask. The other arguments are ignored. */
HANDLE CreateFile(const char* name, uint32_t access, uint32_t share, void* security,
                  uint32_t disposition, uint32_t attributes, HANDLE templateFile);

/* Returns the size in bytes modulo 2^32, or 0xFFFFFFFF on failure. A file may have that size too;
 * gLastError is 0 then. `high` is ignored and never written. */
uint32_t GetFileSize(HANDLE file, uint32_t* high);

/* Read or write at most `length` bytes at the file position, with one system call. On success they
 * return 1 and store the number of bytes in `*done` (may be null); a short count is a success. On
 * failure they return 0 and do not write `*done`. `overlapped` is ignored. */
BOOL ReadFile(HANDLE file, void* buffer, uint32_t length, uint32_t* done, void* overlapped);
BOOL WriteFile(HANDLE file, const void* buffer, uint32_t length, uint32_t* done, void* overlapped);

/* Moves the file position by `distance` bytes from the origin `method`. Returns the new position
 * modulo 2^32, or 0xFFFFFFFF on failure; an unknown origin is code 2. `high` is ignored. */
uint32_t SetFilePointer(HANDLE file, int32_t distance, int32_t* high, uint32_t method);

/* Closes the descriptor. Returns 1, even if closing fails. */
BOOL CloseHandle(HANDLE handle);

OSCL_END_C
