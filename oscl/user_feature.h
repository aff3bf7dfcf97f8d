#pragma once

/* Named settings over the registry: describe a key and typed values, then read or write them.
 *
 * Results are 0, E_FAIL, or where it is said the code of a registry call (oscl/registry.h). The
 * first argument `iface` of some functions is not used and may be null. Any function may run on any
 * thread, but a description may be used by one thread at a time. */

#include "oscl/types.h"

OSCL_BEGIN_C

/* Every pointer that is called owned here stands for memory of AllocMem or AllocAndZeroMem, which
 * the functions of this layer release with FreeMem. */

/* Kinds of a value. Several kinds are stored alike; other numbers are not supported. */
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
  UserFeatureString* strings; /* kind 8: owned; all texts lie in one owned buffer, at the first */
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
  const char* path;         /* sub-key path; the caller's */
  UserFeatureValue* values; /* owned array, or null */
  uint32_t valueCount;
} UserFeatureKey;

/* What a watch holds on to; null or zero where there is none. */
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
 * "HKEY_CURRENT_USER" in `*rootType`, and in `*subPath` a pointer to the character after the
 * backslash: into the caller's string, nothing is copied. E_FAIL, with nothing stored: another
 * root, no backslash, nothing after it, or a null pointer. */
HRESULT OSCL_UserFeature_ParsePath(void* iface, const char* path, uint32_t* rootType,
                                   char** subPath);

/* Opens `path` under the root 1 (HKEY_CURRENT_USER) or 2 (HKEY_LOCAL_MACHINE); with another
 * `rootType` the path alone is the key's name. Returns what RegOpenKeyEx returns. */
HRESULT OSCL_UserFeature_OpenRegistry(uint32_t rootType, const char* path, uint32_t access,
                                      HKEY* key);

/* Releases what the value owns: the name, and of a binary, string or multi-string the data too,
 * which then is null with its sizes 0. A number and the kind stay. Returns 0; a null `value` is
 * ignored. */
HRESULT OSCL_UserFeature_ClearValue(UserFeatureValue* value);

/* Copies `name` into the value's own buffer, allocated at the first use. E_FAIL: a name of more
 * than 255 characters, a null pointer, or memory is short. */
HRESULT OSCL_UserFeature_SetValueName(UserFeatureValue* value, const char* name);

/* Clears every value and releases the list; nothing happens when `valueCount` is 0. Returns 0. */
HRESULT OSCL_UserFeature_DeleteValues(UserFeatureKey* key);
HRESULT OSCL_UserFeature_Cleanup(void* iface, UserFeatureKey* key);

/* Makes the list exactly one value of this name and kind: the one it holds, cleared, or a new one
 * of zeros. `name` may be the name of a value in the list. E_FAIL as for SetValueName; the list
 * then holds a value without a name. */
HRESULT OSCL_UserFeature_ReadValueInit(UserFeatureKey* key, const char* name, uint32_t kind);

/* Points the value, which must own no data, at the strings in `buffer`, each of which ends with a
 * NUL. The last of the `length` bytes, when a string ends right before it, is taken for the end of
 * the list, whatever it holds. On success the value owns `buffer`, a block of AllocMem. E_FAIL,
 * and the caller keeps it: an empty string before the end, a last string that does not end inside
 * `length`, `length` 0, a null pointer, or memory is short. */
HRESULT OSCL_UserFeature_SetMultiStringValue(UserFeatureValue* value, char* buffer,
                                             uint32_t length);

/* Reads one value, which becomes the whole list of the description; the name may be that of a value
 * in the list. Returns the code of RegOpenKeyEx when the key cannot be opened, E_FAIL when the list
 * cannot be made, else the result of the reader of its kind, below. */
HRESULT OSCL_UserFeature_ReadValue(void* iface, UserFeatureKey* key, const char* name,
                                   uint32_t kind);

/* Not supported: returns E_FAIL. Further arguments are ignored. */
HRESULT OSCL_UserFeature_ReadValues(void* iface, ...);

/* Reads a value into a block that the caller releases with FreeMem and that holds a NUL after the
 * `*size` bytes. A value that cannot be read, for whatever reason, is a success with `*data` null
 * and `*size` 0. E_FAIL: memory is short, or a null `data` or `size`. */
HRESULT OSCL_UserFeature_ReadValueVarLen(HKEY key, const char* name, uint32_t flags, void** data,
                                         uint32_t* size);

/* Read the value that has the record's name; the record must own no data. Returns are those of
 * ReadValueVarLen: a value that is absent leaves data null and returns 0. */
HRESULT OSCL_UserFeature_ReadValueBinary(HKEY key, UserFeatureValue* value);
HRESULT OSCL_UserFeature_ReadValueString(HKEY key, UserFeatureValue* value);

/* As above, with E_FAIL for a value that is absent or no list of strings. */
HRESULT OSCL_UserFeature_ReadValueMultiString(HKEY key, UserFeatureValue* value);

/* Reads up to 4 bytes (kinds 2, 4, 6) or 8 bytes (kinds 3, 5) into the start of the data and leaves
 * the rest of it: a file never gives more than 4 bytes of a number. Returns 0 whether or not there
 * was a value to read, with the number as it was where there was none, and E_FAIL for another
 * kind. */
HRESULT OSCL_UserFeature_ReadValuePrimitive(HKEY key, UserFeatureValue* value);

/* Reads a value of the key `path` under HKEY_CURRENT_USER. Returns 0 when it is there, has the type
 * `expectedType` (of oscl/registry.h) and is not empty, else E_FAIL, never the code of a registry
 * call; gLastError is 0 once the key has been opened, for closing it stores that. `data` is then
 * written all the same if the value was found. `size` is not consulted: the whole value is copied
 * into `data`, WHATEVER ITS ROOM, and 256 bytes hold any value. */
HRESULT OSCL_ReadRegistryValue(const char* path, const char* name, uint32_t expectedType,
                               uint32_t size, void* data);

/* Writes the values of the list in order and stops at the first that fails. Returns the code of
 * RegOpenKeyEx, the result of the writer that failed, or 0. A LIST OF TWO OR MORE FAILS ON THE
 * SECOND with 13, because the first write leaves a file that does not load. */
HRESULT OSCL_UserFeature_WriteValues(void* iface, UserFeatureKey* key);

/* Write one value with RegSetValueEx and return its code. `data` holds `size` bytes. */
HRESULT OSCL_UserFeature_WriteValueBinary(HKEY key, UserFeatureValue* value);
HRESULT OSCL_UserFeature_WriteValueString(HKEY key, UserFeatureValue* value);

/* Writes all strings, each with a NUL, and one more NUL: the file receives the first string only.
 * E_FAIL: a text is null, memory is short, or there are 4 GiB or more of them. */
HRESULT OSCL_UserFeature_WriteValueMultiString(HKEY key, UserFeatureValue* value);

/* Writes a number of the value's kind; a value of any other kind becomes type 0 without data, which
 * makes the file unreadable. */
HRESULT OSCL_UserFeature_WriteValuePrimitive(HKEY key, UserFeatureValue* value);

/* Starts to watch a key: sets `changed` to 0 and fills `notifyData`, which DisableNotification
 * releases, also after a failure. On this platform nothing signals a change, so `changed` stays 0.
 * Returns 0, the code of RegOpenKeyEx, or E_FAIL. */
HRESULT OSCL_UserFeature_EnableNotification(void* iface, UserFeatureNotifyKey* key);

/* Stops watching and releases `notifyData`; without one nothing happens. Returns 0.
 *
 * THIS CLOSES FILE DESCRIPTOR 1: no event objects exist, their handle is the constant 1, and
 * closing a handle closes the descriptor of that number. Callers that need their standard output
 * keep a duplicate of it. */
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
