#pragma once

#include "oscl/user_feature_types.h"

OSCL_BEGIN_C

/* Reads one value, which becomes the whole list of the description; the name may be that of a value
 * in the list. Returns the code of RegOpenKeyEx when the key cannot be opened, E_FAIL when the list
 * cannot be made, else the result of the reader of its kind, below. */
HRESULT OSCL_UserFeature_ReadValue(void* iface, UserFeatureKey* key, const char* name,
                                   uint32_t kind);

/* Not supported: returns E_FAIL. Further arguments are ignored. */
HRESULT OSCL_UserFeature_ReadValues(void* iface, ...);

/* Reads a value into a block that the caller releases with FreeMem and that holds a NUL behind the
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
 * was a value to read, the number as it was where there was none (OSCL_UserFeature_ReadValue clears
 * the record before, so that it is 0 then), and E_FAIL for another kind. */
HRESULT OSCL_UserFeature_ReadValuePrimitive(HKEY key, UserFeatureValue* value);

/* Reads a value of the key `path` under HKEY_CURRENT_USER. Returns 0 when it is there, has the type
 * `expectedType` (of oscl/registry.h) and is not empty, else E_FAIL; `data` is then written all the
 * same if the value was found. `size` is not consulted: the whole value is copied into `data`,
 * WHATEVER ITS ROOM, and 256 bytes hold any value. */
HRESULT OSCL_ReadRegistryValue(const char* path, const char* name, uint32_t expectedType,
                               uint32_t size, void* data);

OSCL_END_C
