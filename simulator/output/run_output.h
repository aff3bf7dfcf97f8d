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

// Which outputs a run has. An empty name stands for no file.
struct OutputOptions {
  std::string transcriptFile;
  std::string traceFile;               // Chrome trace events
  std::string reportFile;              // one HTML page
  std::string summaryFile;             // JSON
  bool summary = false;                // on standard error, at the end
  bool quiet = false;                  // no transcript on standard error
  bool connectionNumbers = false;      // TranscriptStyle::connectionNumbers
  std::string time;                    // in the transcript: "start", "clock" or none
  std::optional<std::uint32_t> bytes;  // TranscriptStyle::bytes
  TranscriptFilter only;
  bool log = false;        // the library's log lines, in their places
  bool logDetail = false;  // its detailed ones too
  bool redact = false;     // no message bodies and no private data

  std::vector<NamedFile> Files() const {
    return {{"--transcript", transcriptFile},
            {"--trace", traceFile},
            {"--report", reportFile},
            {"--summary-json", summaryFile}};
  }
};

// What the report says of the run.
struct RunDescription {
  std::vector<std::string> program;
  std::vector<std::string> instructions;  // as on the command line: "--lose read:2"
  std::string logFile;                    // of the library; empty when there is none to follow
  // The system clock's time at zero of the operations' times; without it, as for Now().
  std::optional<std::chrono::nanoseconds> clock = std::nullopt;
};

// Writes the outputs of a run. The device must outlive it; it is null for a recording, whose
// operations the caller passes on. Any thread.
class RunOutput : public OperationObserver {
 public:
  // Throws std::runtime_error for a file that cannot be written.
  RunOutput(const OutputOptions& options, const RunDescription& run, Device* device);
  ~RunOutput() override;
  RunOutput(const RunOutput&) = delete;
  RunOutput& operator=(const RunOutput&) = delete;

  void OnOperation(const OperationRecord& record) override;
  void OnDeviceEvent(const DeviceEvent& event) override;
  // Completes all outputs, with the program's exit status if there is one. Returns false, after a
  // line on standard error, when an output is incomplete. Nothing may follow.
  bool Finish(std::optional<int> status);

 private:
  TextSink FileSink(const char* what, const std::string& path);
  void PassOnLog();  // with the lock held

  Device* device_;
  const bool printsSummary_;
  const bool redact_;
  std::mutex mutex_;  // guards all members below: operations may still come during Finish
  bool finished_ = false;
  RunSummary summary_;
  TextSink summarySink_;  // null without a file
  std::vector<std::shared_ptr<OutputFile>> files_;
  std::vector<std::unique_ptr<OutputWriter>> writers_;
  std::unique_ptr<common::FileFollower> log_;
  common::LogFolder folder_;
};

}  // namespace zulisim
