#pragma once

#include "oscl/types.h"

OSCL_BEGIN_C

/* A registry kept in the text file "/etc/vrel_registry.txt" (docs/registry.md describes it).
 *
 * Every call reads the whole file, most calls twice. Nothing is cached or locked. Any thread may
 * call, but when two writers overlap, in this process or in two, the later one undoes the changes
 * of the other, and a call during a write may find the file empty or incomplete. Names are compared
 * exactly and with case. Each function returns a code and stores it in gLastError: 0 success,
 * 1 memory is exhausted or a root handle was passed where a key id is required, 2 a null name or
 * pointer, 7 no such key, 8 no such value, 9 the file cannot be opened, 10 the file cannot be
 * written, 12 the file has a value of a type other than 1, 4 and 11, 13 the file has a line that
 * should be "[KEY]" or "[VALUE]" and is neither, 15 RegOpenKeyEx found no key. A failed load takes
 * precedence over every other error except a root handle. */

#define HKEY_CLASSES_ROOT ((HKEY)0x80000000u)
#define HKEY_CURRENT_USER ((HKEY)0x80000001u)
#define HKEY_LOCAL_MACHINE ((HKEY)0x80000002u)
#define HKEY_USERS ((HKEY)0x80000003u)

/* Value types. A file with any other type does not load. */
enum {
  REG_NONE = 0,
  REG_SZ = 1,     /* a text; its size counts the NUL */
  REG_BINARY = 3, /* written only */
  REG_DWORD = 4,
  REG_MULTI_SZ = 7, /* written only */
  REG_QWORD = 11,   /* kept in 4 bytes, like REG_DWORD */
};

/* Flags that the settings functions hand to RegGetValue, which ignores them. */
enum {
  RRF_RT_REG_SZ = 2,
  RRF_RT_REG_BINARY = 8,
  RRF_RT_REG_DWORD = 16,
  RRF_RT_REG_MULTI_SZ = 32,
  RRF_RT_REG_QWORD = 64,
};

/* Stores the id of a key in `*result`: of the first key whose name is the prefix of the root `key`
 * followed by `subKey`, or, if `key` is not a root, whose name is `subKey`. If `subKey` is null or
 * makes the name longer than 255 characters, the name is the prefix only. There is nothing to
 * close. */
uint32_t RegOpenKeyEx(HKEY key, const char* subKey, uint32_t options, uint32_t access,
                      HKEY* result);
uint32_t RegOpenKeyExA(HKEY key, const char* subKey, uint32_t options, uint32_t access,
                       HKEY* result);

/* Reads a value. The key's name is the name of the first key with the id `key`, followed by
 * `subKey` (may be null) without a separator. For an unknown id, the name is `subKey` only.
 *
 * `*size` is only written: the whole value is copied into `data`, WHATEVER ITS SIZE. Pass a buffer
 * of 256 bytes, which holds any value. `data`, `type` and `size` may be null. A value without a
 * data line has size 0. */
uint32_t RegGetValue(HKEY key, const char* subKey, const char* valueName, uint32_t flags,
                     uint32_t* type, void* data, uint32_t* size);

/* RegGetValue without a sub-key; `data` must be as large. */
uint32_t RegQueryValueExA(HKEY key, const char* valueName, uint32_t* reserved, uint32_t* type,
                          void* data, uint32_t* size);

/* Sets a value and rewrites the file. The key is found as in RegGetValue. THE REWRITTEN FILE DOES
 * NOT LOAD AGAIN: its lines end in a blank, and every later call returns 13 until the blanks are
 * removed.
 *
 * `data` holds `size` bytes; a null `data` stores zeros. A REG_DWORD always takes 4 bytes, WHATEVER
 * `size` IS. For the types 4 and 11 the file receives the first 4 bytes as a signed number, for any
 * other type the text up to the first NUL or `size`. Size 0 writes no data line, except for a
 * REG_DWORD. A new value with a name longer than 255 characters returns 2. A write that fails
 * (code 10), or a process that ends during one, leaves a truncated file. */
uint32_t RegSetValueEx(HKEY key, const char* valueName, uint32_t reserved, uint32_t type,
                       const void* data, uint32_t size);

/* Releases nothing, stores 0 in gLastError and returns 0. */
uint32_t RegCloseKey_Linux(HKEY key);

OSCL_END_C
