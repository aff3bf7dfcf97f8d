#pragma once

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
