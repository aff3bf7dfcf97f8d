#include "simulator/output/run_output.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <utility>

#include "simulator/output/output_file.h"
#include "simulator/output/report_writer.h"
#include "simulator/output/trace_writer.h"
#include "simulator/output/transcript.h"

namespace zulisim {
namespace {

bool WantsColour() {
  const char* refused = getenv("NO_COLOR");
  const char* terminal = getenv("TERM");
  return isatty(STDERR_FILENO) == 1 && (refused == nullptr || *refused == '\0') &&
         (terminal == nullptr || std::strcmp(terminal, "dumb") != 0);
}

class FileTranscript : public OperationObserver {
 public:
  FileTranscript(const std::string& path, TranscriptStyle style)
      : file_("transcript", path), style_(style) {}
  void OnOperation(const OperationRecord& record) override {
    file_.Write(TranscriptLine(record, style_) + "\n");
  }

 private:
  OutputFile file_;
  const TranscriptStyle style_;
};

std::function<void(const std::string&)> FileSink(const char* what, const std::string& path) {
  const auto file = std::make_shared<OutputFile>(what, path);
  return [file](const std::string& text) { file->Write(text); };
}

std::string Joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

}  // namespace

Observation::Observation(const ObservationOptions& options, const std::vector<std::string>& program,
                         Device* device)
    : device_(device) {
  if (!options.quiet) {
    const TranscriptStyle style{WantsColour(), options.connectionNumbers};
    Add(std::make_unique<Transcript>(&std::cerr, style));
  }
  if (!options.transcriptFile.empty()) {
    Add(std::make_unique<FileTranscript>(options.transcriptFile,
                                         TranscriptStyle{false, options.connectionNumbers}));
  }
  if (!options.traceFile.empty()) {
    Add(std::make_unique<TraceWriter>(FileSink("trace", options.traceFile), Joined(program)));
  }
  if (!options.reportFile.empty()) {
    Add(std::make_unique<ReportWriter>(FileSink("report", options.reportFile), Joined(program)));
  }
  for (const auto& observer : observers_) device_->AddObserver(observer.get());
}

Observation::~Observation() {
  for (const auto& observer : observers_) device_->RemoveObserver(observer.get());
}

void Observation::Add(std::unique_ptr<OperationObserver> observer) {
  observers_.push_back(std::move(observer));
}

}  // namespace zulisim
