#pragma once

#include <sstream>

// Writes the path of the log file and a NUL into `path`; always true. Any thread.
bool DetermineLogFilePath(std::stringstream& path);
