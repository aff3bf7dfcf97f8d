/* Every header must serve a C11 program, layouts included. */

#include "oscl/bounded_string.h"
#include "oscl/critical_section.h"
#include "oscl/file.h"
#include "oscl/inert.h"
#include "oscl/last_error.h"
#include "oscl/memory.h"
#include "oscl/module.h"
#include "oscl/registry.h"
#include "oscl/timing.h"
#include "oscl/user_feature.h"
#include "oscl/version.h"
#include "oscl/whole_file.h"

_Static_assert(sizeof(OSVERSIONINFO) == 148, "version record");
_Static_assert(sizeof(UserFeatureValue) == 32, "value record");
_Static_assert(sizeof(UserFeatureKey) == 32, "key description");
_Static_assert(sizeof(UserFeatureNotifyKey) == 32, "notification description");

int UseFromC(void);

int UseFromC(void) {
  UserFeatureValue value = {0};
  int32_t blocks = gAllocationCount;
  value.type = USER_FEATURE_STRING;
  if (OSCL_UserFeature_SetValueName(&value, "name") != S_OK || value.name == 0) return 1;
  OSCL_UserFeature_ClearValue(&value);
  return gAllocationCount == blocks && GetLastError() == OSCL_ERROR_SUCCESS ? 0 : 2;
}
