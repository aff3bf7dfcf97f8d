#pragma once

#include <memory>
#include <string>

#include "simulator/output/output_file.h"
#include "simulator/output/output_writer.h"

namespace zulisim {

// Returns a writer of Chrome trace events, for the Perfetto viewer: a track for each connection
// with a slice for each command and one for each operation, and instants for failures, faults,
// lines of the log and notes. It writes an event as soon as it is known; the viewer also takes an
// array that lacks its end. `name` is that of the program.
std::unique_ptr<OutputWriter> MakeTraceWriter(TextSink sink, const std::string& name);

}  // namespace zulisim
