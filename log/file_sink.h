#pragma once

namespace logging {

// Registers one more sink for the log file, under the log's lock. Where memory is short none is
// registered: logging never fails its caller. Any thread.
void AppendFileSink();

}  // namespace logging
