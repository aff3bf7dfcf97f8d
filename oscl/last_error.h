#pragma once

#include "oscl/types.h"

OSCL_BEGIN_C

/* The error codes of the compatibility layer and their messages. */
/* clang-format off */
#define OSCL_ERROR_TABLE(row) \
  row(OSCL_ERROR_SUCCESS, 0, "") \
  row(OSCL_ERROR_NO_MEMORY, 1, "no space left for allocate") \
  row(OSCL_ERROR_INVALID_PARAMETER, 2, "invalid parameter is found") \
  row(OSCL_ERROR_INVALID_HANDLE, 3, "invalid handle") \
  row(OSCL_ERROR_FILE_EXISTS, 4, "the file already exists") \
  row(OSCL_ERROR_FILE_NOT_FOUND, 5, "the file not found") \
  row(OSCL_ERROR_FILE_READ_ONLY, 6, "the file is read only") \
  row(OSCL_ERROR_REG_KEY_NOT_FOUND, 7, "can't find key in registry file") \
  row(OSCL_ERROR_REG_VALUE_NOT_FOUND, 8, "can't find the value of the key in registry") \
  row(OSCL_ERROR_REG_FILE_UNREADABLE, 9, "registry file can't be open as read") \
  row(OSCL_ERROR_REG_FILE_UNWRITABLE, 10, "registry file can't be written") \
  row(OSCL_ERROR_REG_FAILED, 11, "registry operation fail") \
  row(OSCL_ERROR_REG_TYPE_UNKNOWN, 12, "registry type unknown") \
  row(OSCL_ERROR_REG_ITEM_UNKNOWN, 13, "unknown items found in registry file") \
  row(OSCL_ERROR_REG_NAME_NOT_FOUND, 14, "registry key name not found") \
  row(OSCL_ERROR_REG_ID_NOT_FOUND, 15, "registry key ID not found") \
  row(OSCL_ERROR_UNKNOWN, 16, "unknown error")
/* clang-format on */

enum {
#define OSCL_ERROR_ENUMERATOR(name, code, message) name = code,
  OSCL_ERROR_TABLE(OSCL_ERROR_ENUMERATOR)
#undef OSCL_ERROR_ENUMERATOR
};

/* The last-error code of the process, 0 at load. All threads share it: a call in any thread may set
 * it, and every log line of the library stores 0 in it, because the logger's lock succeeds. */
OSCL_DATA uint32_t gLastError;

/* Returns gLastError without changing it. Any thread. */
uint32_t GetLastError(void);
uint32_t OSCL_GetLastError(void);

/* Prints the message of `code` to Android's log at debug priority; a code above 16 prints
 * "unknown error". Does not change gLastError. Any thread. */
void ShowErrorInfo(uint32_t code);

OSCL_END_C

#ifdef __cplusplus
namespace oscl {

// Stores `code` in gLastError. Several threads may do so at once; the last one wins.
inline void SetLastErrorCode(uint32_t code) {
  __atomic_store_n(&gLastError, code, __ATOMIC_RELAXED);
}

// Stores the code for `error`, the errno of a file or module primitive, or 0 after a success.
void SetLastErrorFromErrno(int error);

}  // namespace oscl
#endif
