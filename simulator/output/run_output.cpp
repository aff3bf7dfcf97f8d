#include "simulator/output/run_output.h"

#include <iostream>
#include <utility>

#include "common/colours.h"
#include "common/text.h"
#include "simulator/output/output_file.h"
#include "simulator/output/report_writer.h"
#include "simulator/output/trace_writer.h"
#include "simulator/output/transcript.h"

namespace zulisim {
namespace {

TextSink FileSink(const char* what, const std::string& path) {
  const auto file = std::make_shared<OutputFile>(what, path);
  return [file](const std::string& text) { file->Write(text); };
}

}  // namespace

template <typename Observer, typename... Arguments>
void RunOutput::Add(Arguments... arguments) {
  observers_.push_back(std::make_unique<Observer>(std::move(arguments)...));
  device_->AddObserver(observers_.back().get());
}

RunOutput::RunOutput(const OutputOptions& options, const std::vector<std::string>& program,
                     Device* device)
    : device_(device) {
  if (!options.quiet) {
    const TextSink sink = [](const std::string& text) { std::cerr << text << std::flush; };
    Add<Transcript>(sink, TranscriptStyle{common::ColoursFor(stderr), options.connectionNumbers});
  }
  if (!options.transcriptFile.empty()) {
    Add<Transcript>(FileSink("transcript", options.transcriptFile),
                    TranscriptStyle{{}, options.connectionNumbers});
  }
  const std::string name = common::Joined(program, " ");
  if (!options.traceFile.empty()) Add<TraceWriter>(FileSink("trace", options.traceFile), name);
  if (!options.reportFile.empty()) Add<ReportWriter>(FileSink("report", options.reportFile), name);
}

RunOutput::~RunOutput() {
  for (const auto& observer : observers_) device_->RemoveObserver(observer.get());
}

}  // namespace zulisim
