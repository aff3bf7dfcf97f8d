#pragma once

#include <sstream>

// Writes the path of the log file and a NUL into `path`; always true. Any thread.
bool DetermineLogFilePath(std::stringstream& path);

namespace logging {

// Registers one more sink for the log file, under the log's lock. Where memory is short none is
// registered: logging never fails its caller. Any thread.
void AppendFileSink();

}  // namespace logging
