#pragma once

#include <stdio.h>
#include <time.h>

#include "oscl/types.h"

OSCL_BEGIN_C

/* Checked string and memory functions. They never truncate: they return 0 on success, or refuse,
 * return 1 and leave the destination unchanged. Sizes are in bytes. gLastError does not change. Any
 * thread may call them on distinct buffers, except localtime_s. */

/* Copies the text `src` and its NUL. Refuses a null pointer and dstSize <= strlen(src). */
int32_t strcpy_s(char* dst, uint32_t dstSize, const char* src);

/* Copies like strncpy(dst, src, count): pads with NULs up to `count`, and does not terminate if
 * `count` <= strlen(src). Refuses a null pointer and dstSize <= strlen(src). `count` is not
 * checked: if it exceeds dstSize, the copy overruns `dst`. */
int32_t strncpy_s(char* dst, uint32_t dstSize, const char* src, uint32_t count);

/* Appends `src` to the text in `dst`. Refuses a null pointer, and texts that do not fit with a NUL.
 */
int32_t strcat_s(char* dst, uint32_t dstSize, const char* src);

/* Copies `count` bytes. Refuses a null pointer and dstSize < count. */
int32_t memcpy_s(void* dst, uint32_t dstSize, const void* src, uint32_t count);

/* Formats into `dst`, at most dstSize bytes with the NUL, and returns what vsnprintf returns: the
 * length of the full text, which may exceed dstSize, or a negative value. Refuses, and returns 1,
 * if `dst` or `format` is null, or `count` is 0 or greater than dstSize. A refusal looks like a
 * text of one character. */
int32_t _snprintf_s(char* dst, uint32_t dstSize, uint32_t count, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
int32_t _sntprintf_s(char* dst, uint32_t dstSize, uint32_t count, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

/* Opens a file like fopen and stores the stream, or null, in `*file`. Returns 0 or the errno. The
 * caller closes the stream. */
int32_t fopen_s(FILE** file, const char* path, const char* mode);

/* Stores the local time of `*time` in `*dst`. Uses the shared buffer of localtime, so a call of
 * localtime in another thread may race with it. Refuses a null `dst`, and a time that localtime
 * refuses. `time` must not be null. */
int32_t localtime_s(struct tm* dst, const time_t* time);

OSCL_END_C
