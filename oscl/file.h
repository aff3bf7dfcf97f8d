#pragma once

#include "oscl/types.h"

OSCL_BEGIN_C

/* Files. A handle is a file descriptor, so it is shared with every other user of descriptors in the
 * process. A success stores 0 in gLastError, a failure the code of its errno: ENOENT 5, EEXIST 4,
 * EINVAL 2, EROFS 6, any other 16. Any thread; calls on one handle share its file position. */

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

/* Opens `name` and returns a handle that the caller closes with CloseHandle, or
 * INVALID_HANDLE_VALUE. `access` is GENERIC_READ, GENERIC_WRITE or both, and nothing else;
 * `disposition` is one of the five above; anything else, and a null name, is code 2. A created file
 * gets the permission bits 0660, less the process's umask. The other arguments are ignored. */
HANDLE CreateFile(const char* name, uint32_t access, uint32_t share, void* security,
                  uint32_t disposition, uint32_t attributes, HANDLE templateFile);

/* The size in bytes, modulo 2^32, or 0xFFFFFFFF: a file may have that size too, and then
 * gLastError is 0. `high` is ignored and never written. */
uint32_t GetFileSize(HANDLE file, uint32_t* high);

/* One read, or one write, of at most `length` bytes at the file position. Returns 1 and stores in
 * `*done` (may be null) how many bytes were moved: fewer than asked is a success too. Returns 0 on
 * failure and leaves `*done`. `overlapped` is ignored. */
BOOL ReadFile(HANDLE file, void* buffer, uint32_t length, uint32_t* done, void* overlapped);
BOOL WriteFile(HANDLE file, const void* buffer, uint32_t length, uint32_t* done, void* overlapped);

/* Moves the file position by `distance` bytes from the origin `method` (another one is code 2) and
 * returns it modulo 2^32, or 0xFFFFFFFF on failure. `high` is ignored. */
uint32_t SetFilePointer(HANDLE file, int32_t distance, int32_t* high, uint32_t method);

/* Closes the descriptor, ignores whether that failed, and returns 1. */
BOOL CloseHandle(HANDLE handle);

OSCL_END_C
