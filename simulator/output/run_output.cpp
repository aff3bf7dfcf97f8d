#include "simulator/output/run_output.h"

#include <algorithm>
#include <ctime>
#include <iostream>
#include <utility>

#include <nlohmann/json.hpp>

#include "common/colours.h"
#include "common/text.h"
#include "simulator/output/report_writer.h"
#include "simulator/output/trace_writer.h"

namespace zulisim {
namespace {

std::string Date() {
  const std::time_t now = std::time(nullptr);
  char text[64] = "";
  std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S %Z", std::localtime(&now));
  return text;
}

std::string LogText(const common::LogRecord& record, std::size_t copies) {
  std::string text = record.prefix.empty() ? "" : record.prefix + "  ";
  if (!record.function.empty()) text += record.function + ":" + record.tag + "  ";
  text += common::Printable(record.text);
  text.resize(text.find_last_not_of(' ') + 1);
  return copies > 1 ? text + "  x" + std::to_string(copies) : text;
}

// Returns true for the line that the library writes when an API call fails.
bool IsFailure(const common::LogRecord& record) {
  return record.text.find("Exception") != std::string::npos ||
         record.text.find("API failed") != std::string::npos;
}

// Returns the system clock's time minus Now().
std::chrono::nanoseconds SystemClock() {
  return std::chrono::system_clock::now().time_since_epoch() - Now();
}

}  // namespace

RunOutput::RunOutput(const OutputOptions& options, const RunDescription& run, Device* device)
    : device_(device),
      printsSummary_(options.summary),
      redact_(options.redact),
      folder_([this](const common::LogRecord& record, std::size_t copies) {
        for (const auto& writer : writers_) {
          writer->OnLogLine(LogText(record, copies), IsFailure(record), time_);
        }
      }) {
  TranscriptStyle style = options.style;
  const auto start = device == nullptr ? std::chrono::nanoseconds() : Now();
  if (options.time == "start") style.start = start;
  if (options.time == "clock") style.clock = run.clock.value_or(SystemClock());
  const auto add = [this](auto writer) { writers_.push_back(std::move(writer)); };
  if (!options.transcriptFile.empty()) {
    add(std::make_unique<Transcript>(FileSink("transcript", options.transcriptFile), style));
  }
  if (!options.quiet) {
    style.colours = common::ColoursFor(stderr);
    const TextSink sink = [](const std::string& text) { std::cerr << text << std::flush; };
    add(std::make_unique<Transcript>(sink, style));
  }
  const std::string name = common::Joined(run.program, " ");
  if (!options.traceFile.empty()) {
    add(MakeTraceWriter(FileSink("trace", options.traceFile), name));
  }
  if (!options.reportFile.empty()) {
    style.colours = {};
    style.threads = true;
    if (!style.clock) style.start = start;
    add(MakeReportWriter(FileSink("report", options.reportFile),
                         {{"program", name},
                          {"instructions", common::Joined(run.instructions, " ")},
                          {"written by", "zulisim " ZULISIM_VERSION},
                          {"date", Date()}},
                         style));
  }
  if (!options.summaryFile.empty()) summarySink_ = FileSink("summary", options.summaryFile);
  const bool log = options.log || options.logDetail || !options.reportFile.empty();
  if (log && !run.logFile.empty()) {
    log_ = std::make_unique<common::FileFollower>(run.logFile);
    log_->Take();  // the lines of earlier runs
  }
  if (device_ != nullptr) device_->AddObserver(this);
}

RunOutput::~RunOutput() {
  if (device_ != nullptr) device_->RemoveObserver(this);
  if (!finished_) Finish(std::nullopt);  // an exception ended the run
}

TextSink RunOutput::FileSink(const char* what, const std::string& path) {
  const auto file = std::make_shared<OutputFile>(what, path);
  files_.push_back(file);
  return [file](const std::string& text) { file->Write(text); };
}

bool RunOutput::Finish(std::optional<int> status) {
  const std::lock_guard<std::mutex> lock(mutex_);
  finished_ = true;
  PassOnLog(time_);
  for (const auto& writer : writers_) writer->Finish(summary_, status);
  writers_.clear();
  if (printsSummary_) std::cerr << "zulisim: summary of " << summary_.Text() << "\n";
  if (summarySink_) {
    using Json = nlohmann::ordered_json;
    summarySink_(summary_.Json().dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
  }
  bool complete = true;
  for (const auto& file : files_) {
    file->Write("");  // create the transcript even if it has no operations
    complete = file->Close() && complete;
  }
  return complete;
}

void RunOutput::OnOperation(const OperationRecord& record) {
  const std::lock_guard<std::mutex> lock(mutex_);
  PassOnLog(record.start);
  time_ = record.end;
  summary_.Add(record);
  OperationRecord shown = record;
  if (redact_) RemoveBodies(&shown);
  for (const auto& writer : writers_) writer->OnOperation(shown);
}

void RunOutput::OnDeviceEvent(const DeviceEvent& event) {
  const std::lock_guard<std::mutex> lock(mutex_);
  PassOnLog(event.time);
  for (const auto& writer : writers_) writer->OnDeviceEvent(event);
}

// Called while the program's thread waits for the operation, so the log already contains the lines
// that the thread wrote before it.
void RunOutput::PassOnLog(std::chrono::nanoseconds time) {
  time_ = time;
  if (log_ == nullptr) return;
  common::LogSplitter splitter(
      [this](common::LogRecord&& record) { folder_.Add(std::move(record)); });
  splitter.Feed(log_->Take());
  splitter.Finish();
  folder_.Finish();
}

}  // namespace zulisim
