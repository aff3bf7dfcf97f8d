#pragma once

/* Named settings in the registry: describe a key and its typed values, then read or write them.
 *
 * Functions return 0, E_FAIL or, where the comment says so, the code of a registry call
 * (oscl/registry.h). The argument `iface` is not used and may be null. Any thread may call any
 * function, but only one thread at a time may use a description. */

#include "oscl/types.h"

OSCL_BEGIN_C

/* "Owned" pointers point to memory of AllocMem or AllocAndZeroMem, which the functions below
 * release with FreeMem. */

/* Kinds of values. Several kinds have the same representation; other numbers are not supported. */
enum {
  USER_FEATURE_BINARY = 1,
  USER_FEATURE_NUMBER32_A = 2,
  USER_FEATURE_NUMBER64_A = 3,
  USER_FEATURE_NUMBER32_B = 4,
  USER_FEATURE_NUMBER64_B = 5,
  USER_FEATURE_NUMBER32_C = 6,
  USER_FEATURE_STRING = 7,
  USER_FEATURE_MULTI_STRING = 8,
};

/* The longest name of a value, without its NUL. */
enum { USER_FEATURE_NAME_LIMIT = 255 };

/* One string of a multi-string. */
typedef struct UserFeatureString {
  char* text;
  uint32_t length; /* bytes without the NUL */
} UserFeatureString;

typedef union UserFeatureData {
  uint32_t number32;          /* kinds 2, 4, 6 */
  uint64_t number64;          /* kinds 3, 5 */
  void* binary;               /* kind 1: owned */
  char* string;               /* kind 7: owned */
  UserFeatureString* strings; /* kind 8: owned; the first text points to one owned buffer of all */
} UserFeatureData;

typedef struct UserFeatureValue {
  char* name; /* owned buffer of 256 bytes, or null */
  uint32_t type;
  UserFeatureData data;
  uint32_t size;        /* bytes of a binary or string, number of strings of a multi-string */
  uint32_t totalLength; /* multi-string: bytes of all strings with their NULs */
} UserFeatureValue;

/* Describes a key and its values. Zero it before its first use. */
typedef struct UserFeatureKey {
  uint32_t rootType;        /* 1 HKEY_CURRENT_USER, 2 HKEY_LOCAL_MACHINE, else no root */
  const char* path;         /* sub-key path; the caller owns it */
  UserFeatureValue* values; /* owned array, or null */
  uint32_t valueCount;
} UserFeatureKey;

/* The handles of a watch; null or zero if there is none. */
typedef struct UserFeatureNotifyData {
  HKEY key;
  HANDLE event;
  HANDLE wait;
} UserFeatureNotifyData;

/* Describes a key to watch. Zero it before its first use. */
typedef struct UserFeatureNotifyKey {
  uint32_t rootType;
  const char* path;
  uint32_t changed;                  /* 1 after a change */
  UserFeatureNotifyData* notifyData; /* owned; made by EnableNotification */
} UserFeatureNotifyKey;

/* Splits a full path at its first backslash. Stores 2 for "HKEY_LOCAL_MACHINE" or 1 for
 * "HKEY_CURRENT_USER" in `*rootType`, and a pointer to the character after the backslash in
 * `*subPath`. That pointer points into `path`. Returns E_FAIL and stores nothing if the root is
 * another one, if there is no backslash or nothing after it, or if a pointer is null. */
HRESULT OSCL_UserFeature_ParsePath(void* iface, const char* path, uint32_t* rootType,
                                   char** subPath);

/* Opens `path` under the root 1 (HKEY_CURRENT_USER) or 2 (HKEY_LOCAL_MACHINE). With any other
 * `rootType`, `path` is the whole name. Returns the result of RegOpenKeyEx. */
HRESULT OSCL_UserFeature_OpenRegistry(uint32_t rootType, const char* path, uint32_t access,
                                      HKEY* key);

/* Releases the name and the data that the value owns, and sets the data to null and its sizes to 0.
 * Does not change a number or the kind. Ignores a null `value`. Returns 0. */
HRESULT OSCL_UserFeature_ClearValue(UserFeatureValue* value);

/* Copies `name` into the value's buffer, which the first call allocates. Returns E_FAIL if the name
 * is longer than 255 characters, a pointer is null, or memory is exhausted. */
HRESULT OSCL_UserFeature_SetValueName(UserFeatureValue* value, const char* name);

/* Clears every value and releases the list. Does nothing if `valueCount` is 0. Returns 0. */
HRESULT OSCL_UserFeature_DeleteValues(UserFeatureKey* key);
HRESULT OSCL_UserFeature_Cleanup(void* iface, UserFeatureKey* key);

/* Reduces the list to one value with this name and kind: the only one it has, cleared, or a new
 * one. `name` may point to the name of a value in the list. Returns E_FAIL like SetValueName; the
 * value then has no name. */
HRESULT OSCL_UserFeature_ReadValueInit(UserFeatureKey* key, const char* name, uint32_t kind);

/* Makes the value, which must own no data, refer to the strings in `buffer`, a block of AllocMem.
 * Each string ends with a NUL. If a string ends right before the last of the `length` bytes, that
 * byte ends the list, whatever its value. On success the value owns `buffer`. Returns E_FAIL, and
 * the caller keeps `buffer`, if a string before the end is empty, if the last string does not end
 * inside `length`, if `length` is 0, if a pointer is null, or if memory is exhausted. */
HRESULT OSCL_UserFeature_SetMultiStringValue(UserFeatureValue* value, char* buffer,
                                             uint32_t length);

/* Reads one value, which replaces the list of the description. `name` may point to the name of a
 * value in the list. Returns the code of RegOpenKeyEx if the key cannot be opened, E_FAIL if the
 * list cannot be created, and otherwise the result of the function for its kind below. */
HRESULT OSCL_UserFeature_ReadValue(void* iface, UserFeatureKey* key, const char* name,
                                   uint32_t kind);

/* Not supported: returns E_FAIL. Further arguments are ignored. */
HRESULT OSCL_UserFeature_ReadValues(void* iface, ...);

/* Reads a value into a new block of `*size` bytes followed by a NUL, which the caller releases with
 * FreeMem. If the value cannot be read for any reason, returns 0 and sets `*data` to null and
 * `*size` to 0. Returns E_FAIL if memory is exhausted, or if `data` or `size` is null. */
HRESULT OSCL_UserFeature_ReadValueVarLen(HKEY key, const char* name, uint32_t flags, void** data,
                                         uint32_t* size);

/* Read the value named by the record, which must own no data. They return what ReadValueVarLen
 * returns: for a missing value, null data and 0. */
HRESULT OSCL_UserFeature_ReadValueBinary(HKEY key, UserFeatureValue* value);
HRESULT OSCL_UserFeature_ReadValueString(HKEY key, UserFeatureValue* value);

/* The same, but returns E_FAIL if the value is missing or is not a list of strings. */
HRESULT OSCL_UserFeature_ReadValueMultiString(HKEY key, UserFeatureValue* value);

/* Reads up to 4 bytes (kinds 2, 4, 6) or 8 bytes (kinds 3, 5) into the start of the data and does
 * not change the rest: a file never provides more than 4 bytes of a number. Returns 0, even if the
 * value is missing, which leaves the number unchanged, and E_FAIL for any other kind. */
HRESULT OSCL_UserFeature_ReadValuePrimitive(HKEY key, UserFeatureValue* value);

/* Reads a value of the key `path` under HKEY_CURRENT_USER. Returns 0 if the value exists, has the
 * type `expectedType` (of oscl/registry.h) and is not empty, and otherwise E_FAIL. If the value
 * exists, `data` is written even on E_FAIL. gLastError is 0 if the key could be opened, because
 * closing it stores 0. `size` is ignored: the whole value is copied into `data`, WHATEVER ITS SIZE,
 * and 256 bytes hold any value. */
HRESULT OSCL_ReadRegistryValue(const char* path, const char* name, uint32_t expectedType,
                               uint32_t size, void* data);

/* Writes the values of the list in order and stops at the first failure. Returns the code of
 * RegOpenKeyEx, the result of the write that failed, or 0. THE SECOND VALUE OF A LIST ALWAYS FAILS
 * with 13, because the first write leaves a file that does not load. */
HRESULT OSCL_UserFeature_WriteValues(void* iface, UserFeatureKey* key);

/* Write one value, whose data has `size` bytes, and return the code of RegSetValueEx. */
HRESULT OSCL_UserFeature_WriteValueBinary(HKEY key, UserFeatureValue* value);
HRESULT OSCL_UserFeature_WriteValueString(HKEY key, UserFeatureValue* value);

/* Writes all strings, each with a NUL, and a final NUL; the file receives only the first string.
 * Returns E_FAIL if a text is null, if memory is exhausted, or if the strings have 4 GiB or more.
 */
HRESULT OSCL_UserFeature_WriteValueMultiString(HKEY key, UserFeatureValue* value);

/* Writes a number. A value of any other kind is written as type 0 without data, and the file does
 * not load afterwards. */
HRESULT OSCL_UserFeature_WriteValuePrimitive(HKEY key, UserFeatureValue* value);

/* Starts to watch a key: sets `changed` to 0 and allocates `notifyData`, which DisableNotification
 * releases, even after a failure. This platform never signals a change, so `changed` stays 0.
 * Returns 0, the code of RegOpenKeyEx, or E_FAIL. */
HRESULT OSCL_UserFeature_EnableNotification(void* iface, UserFeatureNotifyKey* key);

/* Stops watching and releases `notifyData`. Does nothing if it is null. Returns 0.
 *
 * THIS CLOSES FILE DESCRIPTOR 1: the handle of an event is the constant 1, and closing a handle
 * closes the descriptor with that number. Keep a duplicate if you need your standard output. */
HRESULT OSCL_UserFeature_DisableNotification(void* iface, UserFeatureNotifyKey* key);

/* Sets `changed` of the UserFeatureNotifyKey `context` to 1. `timedOut` is ignored. */
void OSCL_UserFeature_RegistryCallback(void* context, uint8_t timedOut);

OSCL_END_C

#ifdef __cplusplus
#include <cstddef>

/* Callers share these layouts. */
static_assert(sizeof(UserFeatureString) == 16);
static_assert(sizeof(UserFeatureData) == 8);
static_assert(sizeof(UserFeatureValue) == 32 && offsetof(UserFeatureValue, data) == 16 &&
              offsetof(UserFeatureValue, totalLength) == 28);
static_assert(sizeof(UserFeatureKey) == 32 && offsetof(UserFeatureKey, valueCount) == 24);
static_assert(sizeof(UserFeatureNotifyData) == 24);
static_assert(sizeof(UserFeatureNotifyKey) == 32 && offsetof(UserFeatureNotifyKey, changed) == 16);
#endif
