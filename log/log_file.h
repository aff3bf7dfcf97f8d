#pragma once

/* For C++ only. */
#ifndef __cplusplus
#error "log/log_file.h is for C++ only; C drivers include api/kalo_dll.h and api/kalo_dll_state.h"
#endif

#include <sstream>

// Writes the path of the log file and a NUL into `path`. Always returns true. Any thread.
bool DetermineLogFilePath(std::stringstream& path);
