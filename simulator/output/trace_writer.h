#pragma once

#include <memory>
#include <string>

#include "simulator/output/output_file.h"
#include "simulator/output/output_writer.h"

namespace zulisim {

// Returns a writer of Chrome trace events, for the Perfetto viewer. Each connection has a track,
// with a slice for each command and each operation. Failures, faults, log lines and notes are
// instants. The writer writes each event at once; the viewer also accepts an array without its end.
// `name` is the name of the program.
std::unique_ptr<OutputWriter> MakeTraceWriter(TextSink sink, const std::string& name);

}  // namespace zulisim
