#pragma once

#include "oscl/user_feature_types.h"

OSCL_BEGIN_C

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

OSCL_END_C
