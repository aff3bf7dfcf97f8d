#pragma once

/* Named settings over the registry: describe a key and typed values, then read or write them.
 *
 * Results are 0, E_FAIL, or where it is said the code of a registry call (oscl/registry.h). The
 * first argument `iface` of some functions is not used and may be null. Any function may run on any
 * thread, but a description may be used by one thread at a time. */

#include "oscl/user_feature_key.h"
#include "oscl/user_feature_notify.h"
#include "oscl/user_feature_read.h"
#include "oscl/user_feature_types.h"
#include "oscl/user_feature_value.h"
#include "oscl/user_feature_write.h"
