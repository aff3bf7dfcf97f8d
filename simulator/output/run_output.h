#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "common/file_follower.h"
#include "common/log_folder.h"
#include "simulator/device/device.h"
#include "simulator/output/output_file.h"
#include "simulator/output/output_writer.h"
#include "simulator/output/run_summary.h"
#include "simulator/output/transcript.h"

namespace zulisim {

// The outputs of a run. An empty name means no file.
struct OutputOptions {
  std::string transcriptFile;
  std::string traceFile;    // Chrome trace events
  std::string reportFile;   // one HTML page
  std::string summaryFile;  // JSON
  bool summary = false;     // print a summary on standard error at the end
  bool quiet = false;       // print no transcript on standard error
  std::string time;         // time in the transcript: "start", "clock" or none
  TranscriptStyle style;    // of the transcript
  bool log = false;         // show the library's log lines between the operations
  bool logDetail = false;   // show its detailed log lines too
  bool redact = false;      // leave out message bodies and private data

  std::vector<NamedFile> Files() const {
    return {{"--transcript", transcriptFile},
            {"--trace", traceFile},
            {"--report", reportFile},
            {"--summary-json", summaryFile}};
  }
};

// The description of the run in the report.
struct RunDescription {
  std::vector<std::string> program;
  std::vector<std::string> instructions;  // as on the command line: "--lose read:2"
  std::string logFile;                    // the library's log file; empty if there is none to read
  // The system clock's time at which the operations' time was 0. If this is missing, the
  // operations' times are times of Now().
  std::optional<std::chrono::nanoseconds> clock = std::nullopt;
};

// Writes the outputs of a run. `device` must outlive it. It is null for a recording; then the
// caller passes the operations on. Thread-safe.
class RunOutput : public OperationObserver {
 public:
  // Throws std::runtime_error if a file cannot be written.
  RunOutput(const OutputOptions& options, const RunDescription& run, Device* device);
  ~RunOutput() override;
  RunOutput(const RunOutput&) = delete;
  RunOutput& operator=(const RunOutput&) = delete;

  void OnOperation(const OperationRecord& record) override;
  void OnDeviceEvent(const DeviceEvent& event) override;
  // Completes all outputs. `status` is the program's exit status, if there is one. Returns false,
  // after a message on standard error, if an output is incomplete. Call it last.
  bool Finish(std::optional<int> status);

 private:
  TextSink FileSink(const char* what, const std::string& path);
  // Requires the lock. `time` is that of the next operation or event.
  void PassOnLog(std::chrono::nanoseconds time);

  Device* device_;
  const bool printsSummary_;
  const bool redact_;
  std::mutex mutex_;  // guards all members below: operations may still come during Finish
  bool finished_ = false;
  std::chrono::nanoseconds time_{};  // of the log lines that come next
  RunSummary summary_;
  TextSink summarySink_;  // null if the summary has no file
  std::vector<std::shared_ptr<OutputFile>> files_;
  std::vector<std::unique_ptr<OutputWriter>> writers_;
  std::unique_ptr<common::FileFollower> log_;
  common::LogFolder folder_;
};

}  // namespace zulisim
