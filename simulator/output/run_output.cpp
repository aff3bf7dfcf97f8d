#include "simulator/output/run_output.h"

#include <ctime>
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

std::string Date() {
  const std::time_t now = std::time(nullptr);
  char text[64] = "";
  std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S %Z", std::localtime(&now));
  return text;
}

}  // namespace

RunOutput::RunOutput(const OutputOptions& options, const RunDescription& run, Device* device)
    : device_(device),
      redact_(options.redact),
      folder_([this](const common::LogRecord& record, std::size_t copies) {
        for (const auto& writer : writers_) writer->OnLogLine({record, copies});
      }) {
  TranscriptStyle style;
  style.connectionNumbers = options.connectionNumbers;
  style.bytes = options.bytes.value_or(0);
  if (options.time) style.start = device == nullptr ? std::chrono::nanoseconds() : Now();
  if (!options.transcriptFile.empty()) {
    writers_.push_back(
        std::make_unique<Transcript>(FileSink("transcript", options.transcriptFile), style));
  }
  if (!options.quiet) {
    style.colours = common::ColoursFor(stderr);
    const TextSink sink = [](const std::string& text) { std::cerr << text << std::flush; };
    writers_.push_back(std::make_unique<Transcript>(sink, style));
  }
  const std::string name = common::Joined(run.program, " ");
  if (!options.traceFile.empty()) {
    writers_.push_back(std::make_unique<TraceWriter>(FileSink("trace", options.traceFile), name));
  }
  if (!options.reportFile.empty()) {
    writers_.push_back(
        std::make_unique<ReportWriter>(FileSink("report", options.reportFile),
                                       ReportHead{name, common::Joined(run.instructions, " "),
                                                  "zulisim " ZULISIM_VERSION, Date()}));
  }
  if ((options.log || options.logDetail) && !run.logFile.empty()) {
    log_ = std::make_unique<common::FileFollower>(run.logFile, common::FileFollower::From::kEnd);
  }
  if (device_ != nullptr) device_->AddObserver(this);
}

RunOutput::~RunOutput() {
  if (device_ != nullptr) device_->RemoveObserver(this);
  const std::lock_guard<std::mutex> lock(mutex_);
  PassOnLog();
}

int RunOutput::Ended(int status) {
  const std::lock_guard<std::mutex> lock(mutex_);
  PassOnLog();
  for (const auto& writer : writers_) writer->OnExit(status);
  return status;
}

void RunOutput::OnOperation(const OperationRecord& record) {
  const std::lock_guard<std::mutex> lock(mutex_);
  PassOnLog();
  OperationRecord shown = record;
  if (redact_) RemoveBodies(&shown);
  for (const auto& writer : writers_) writer->OnOperation(shown);
}

// The program waits for the operation that this comes before, so that what its thread has written
// is there as a whole.
void RunOutput::PassOnLog() {
  if (log_ == nullptr) return;
  common::LogSplitter splitter(
      [this](common::LogRecord&& record) { folder_.Add(std::move(record)); });
  splitter.Feed(log_->Take());
  splitter.Finish();
  folder_.Finish();
}

}  // namespace zulisim
