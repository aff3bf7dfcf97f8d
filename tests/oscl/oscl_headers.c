/* Every header must serve a C11 program. */

#include "oscl/bounded_string.h"
#include "oscl/critical_section.h"
#include "oscl/file.h"
#include "oscl/stubs.h"
#include "oscl/last_error.h"
#include "oscl/memory.h"
#include "oscl/module.h"
#include "oscl/registry.h"
#include "oscl/timing.h"
#include "oscl/user_feature.h"
#include "oscl/version.h"
#include "oscl/whole_file.h"
