#pragma once

#include "oscl/types.h"

OSCL_BEGIN_C

/* A registry kept in the text file "/etc/vrel_registry.txt" (docs/registry.md describes it).
 *
 * Every call reads the whole file, most of them twice; nothing is cached or locked. Calls may run
 * on any thread, but of two writers, in this process or another, the later one undoes all that the
 * other changed meanwhile, and a call beside a writer may find the file empty or cut. Names are
 * compared exactly, with case. Each function returns a code and stores the same code in gLastError:
 * 0 success, 1 memory is short or a root handle was given where only a key id will do, 2 a null
 * name or pointer, 7 no such key, 8 no such value, 9 the file cannot be opened, 10 it cannot be
 * written, 12 it holds a value of a type other than 1, 4 and 11, 13 it holds a line that belongs to
 * nothing, 15 RegOpenKeyEx found no key. A load that fails is reported before anything else but a
 * root handle. */

#define HKEY_CLASSES_ROOT ((HKEY)0x80000000u)
#define HKEY_CURRENT_USER ((HKEY)0x80000001u)
#define HKEY_LOCAL_MACHINE ((HKEY)0x80000002u)
#define HKEY_USERS ((HKEY)0x80000003u)

/* Value types. Others can be written but make the file unreadable. */
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

/* Stores in `*result` the id of the first key that is named by the prefix of the root `key` and
 * `subKey`; with any other `key` the sub-key alone is the name. A null sub-key, and one that
 * would make more than 255 characters, leaves the prefix alone as the name. There is nothing to
 * close. */
uint32_t RegOpenKeyEx(HKEY key, const char* subKey, uint32_t options, uint32_t access,
                      HKEY* result);
uint32_t RegOpenKeyExA(HKEY key, const char* subKey, uint32_t options, uint32_t access,
                       HKEY* result);

/* Reads a value of the key whose name is the name of the first key with the id `key`, followed by
 * `subKey` (may be null) without a separator. An id that no key has stands for the empty name.
 *
 * `*size` is written, never read: the whole value is copied into `data`, WHATEVER ITS ROOM. Without
 * knowledge of the file `data` must hold 256 bytes, which no value exceeds. `data`, `type` and
 * `size` may be null. A value whose data line the file lacks has size 0. */
uint32_t RegGetValue(HKEY key, const char* subKey, const char* valueName, uint32_t flags,
                     uint32_t* type, void* data, uint32_t* size);

/* RegGetValue without a sub-key; `data` needs the same room. */
uint32_t RegQueryValueExA(HKEY key, const char* valueName, uint32_t* reserved, uint32_t* type,
                          void* data, uint32_t* size);

/* Sets a value of the first key that has the name of the first key with the id `key`, and rewrites
 * the file. THE REWRITTEN FILE DOES NOT LOAD AGAIN: its lines end in a blank, and every later call
 * gives 13 until the blanks are removed.
 *
 * `data` holds `size` bytes, but for a REG_DWORD 4 WHATEVER `size` SAYS; a null `data` stores
 * zeros. The file receives the first 4 bytes as a signed number for the types 4 and 11, for
 * any other type the text up to the first NUL or `size`, and no data line for size 0, which a
 * REG_DWORD never has. A new value whose name is longer than 255 characters is code 2. A write that
 * fails part-way (code 10) leaves a truncated file, as does the end of the process during one. */
uint32_t RegSetValueEx(HKEY key, const char* valueName, uint32_t reserved, uint32_t type,
                       const void* data, uint32_t size);

/* Releases nothing, stores 0 in gLastError and returns 0. */
uint32_t RegCloseKey_Linux(HKEY key);

OSCL_END_C
