#pragma once

#include <memory>

#include <nlohmann/json_fwd.hpp>

#include "simulator/output/output_file.h"
#include "simulator/output/output_writer.h"
#include "simulator/output/transcript.h"

namespace zulisim {

// Returns a writer of one HTML page. The page contains report.html with its style and script, and
// the run's transcript as one JSON object per line. It refers to no other file, and a page that was
// cut off can still be read. Above 256 MiB, it receives only failures.
//
// `head` is a JSON object of texts about the run. The page omits empty ones.
std::unique_ptr<OutputWriter> MakeReportWriter(TextSink sink, const nlohmann::ordered_json& head,
                                               const TranscriptStyle& style);

}  // namespace zulisim
