#pragma once

#include <memory>

#include <nlohmann/json_fwd.hpp>

#include "simulator/output/output_file.h"
#include "simulator/output/output_writer.h"
#include "simulator/output/transcript.h"

namespace zulisim {

// Returns a writer of one HTML page: report.html with its style and script, and the run's
// transcript as a JSON object on each line. The page grows with the run, can be read when it is
// cut, and refers to nothing outside of itself. After 256 MiB it takes failures only.
//
// `head` is an object of texts about the run; the page leaves out the empty ones.
std::unique_ptr<OutputWriter> MakeReportWriter(TextSink sink, const nlohmann::ordered_json& head,
                                               const TranscriptStyle& style);

}  // namespace zulisim
