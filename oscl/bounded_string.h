#pragma once

#include <stdio.h>
#include <time.h>

#include "oscl/types.h"

OSCL_BEGIN_C

/* Checked string and memory functions. They refuse rather than truncate: a refusal returns 1 and
 * leaves the destination as it was; success is 0. Sizes are in bytes. None of them touches
 * gLastError; all but localtime_s may be called from any thread on distinct buffers. */

/* Copies the text `src` and its NUL. Refused: a null pointer, or dstSize <= strlen(src). */
int32_t strcpy_s(char* dst, uint32_t dstSize, const char* src);

/* Copies as strncpy(dst, src, count): padded with NULs up to `count`, not terminated when `count`
 * is at most strlen(src). Refused: a null pointer, or dstSize <= strlen(src).
 * `count` is not checked: the caller guarantees count <= dstSize, or the copy overruns `dst`. */
int32_t strncpy_s(char* dst, uint32_t dstSize, const char* src, uint32_t count);

/* Appends `src` to the text in `dst`. Refused: a null pointer, or no room for both and a NUL. */
int32_t strcat_s(char* dst, uint32_t dstSize, const char* src);

/* Copies `count` bytes. Refused: a null pointer, or dstSize < count. */
int32_t memcpy_s(void* dst, uint32_t dstSize, const void* src, uint32_t count);

/* Formats into `dst`, at most dstSize bytes with the NUL, and returns what vsnprintf returns: the
 * length of the full text, which may exceed what was stored, or a negative value. `count` is only
 * checked. Refused with 1: a null `dst` or `format`, count 0, or count > dstSize; a refusal cannot
 * be told from a text of one character. */
int32_t _snprintf_s(char* dst, uint32_t dstSize, uint32_t count, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
int32_t _sntprintf_s(char* dst, uint32_t dstSize, uint32_t count, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

/* Opens as fopen and stores the stream, or null, in `*file`. Returns 0, or errno of the failure.
 * The caller closes the stream. */
int32_t fopen_s(FILE** file, const char* path, const char* mode);

/* Local time of `*time`, through the shared buffer of localtime: a call of localtime in another
 * thread may race with it. Refused when localtime fails or `dst` is null; `time` must not be
 * null. */
int32_t localtime_s(struct tm* dst, const time_t* time);

OSCL_END_C
