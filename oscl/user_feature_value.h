#pragma once

#include "oscl/user_feature_types.h"

OSCL_BEGIN_C

/* Releases what the value owns by its kind and leaves name, data and sizes null, so that the
 * record can be used again. The kind stays. A null `value` is ignored. */
void OSCL_UserFeature_ClearValue(UserFeatureValue* value);

/* Copies `name` into the value's own buffer, allocated at the first use. E_FAIL: a name of more
 * than 255 characters, a null pointer, or memory is short. */
HRESULT OSCL_UserFeature_SetValueName(UserFeatureValue* value, const char* name);

/* Clears every value and releases the list. Nothing happens when `valueCount` is 0. */
void OSCL_UserFeature_DeleteValues(UserFeatureKey* key);
void OSCL_UserFeature_Cleanup(void* iface, UserFeatureKey* key);

/* Makes the list exactly one value, cleared, of this name and kind; `name` may be the name of a
 * value in the list. E_FAIL as for SetValueName; the list then holds a value without a name. */
HRESULT OSCL_UserFeature_ReadValueInit(UserFeatureKey* key, const char* name, uint32_t kind);

/* Points the value, which must own no data, at the strings in `buffer`, each of which ends with a
 * NUL. The last of the `length` bytes, when a string ends right before it, is taken for the end of
 * the list, whatever it holds. On success the value owns `buffer`, a block of AllocMem. E_FAIL,
 * and the caller keeps it: an empty string before the end, a last string that does not end inside
 * `length`, `length` 0, a null pointer, or memory is short. */
HRESULT OSCL_UserFeature_SetMultiStringValue(UserFeatureValue* value, char* buffer,
                                             uint32_t length);

OSCL_END_C
