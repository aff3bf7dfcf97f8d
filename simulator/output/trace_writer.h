#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "simulator/device/operation.h"
#include "simulator/output/output_file.h"
#include "simulator/output/output_writer.h"

namespace zulisim {

// Turns operations into Chrome trace events, for the Perfetto viewer: a track for each connection
// with a slice for each command and one for each operation, and instants for failures, faults,
// lines of the log and notes. An event is written as soon as it is known; the viewer also takes an
// array that lacks its end.
class TraceWriter : public OutputWriter {
 public:
  // `name` is that of the program.
  TraceWriter(TextSink sink, const std::string& name);
  void OnOperation(const OperationRecord& record) override;
  void OnLogLine(const LogLine& line) override { log_.push_back(LogLineText(line)); }
  void OnNote(const std::string& text, std::chrono::nanoseconds time) override;
  void Finish(const RunSummary& summary, std::optional<int> status) override;

 private:
  double SinceStart(std::chrono::nanoseconds time);
  void Emit(const nlohmann::ordered_json& event);
  void EmitInstant(std::uint64_t track, const std::string& name, std::chrono::nanoseconds time);
  // The lines of the log since the last operation, at that time.
  void EmitLog(std::chrono::nanoseconds time);
  void EmitOperation(const OperationRecord& record);
  void BeginCommand(const OperationRecord& record);
  // Ends the connection's command, if it has one, at that time.
  void EndCommand(const OperationRecord& record, std::chrono::nanoseconds time);

  const TextSink sink_;
  bool first_ = true;
  std::optional<std::chrono::nanoseconds> start_;
  std::chrono::nanoseconds last_{};
  std::map<std::uint64_t, std::string> commands_;  // statuses of open commands, by connection
  std::vector<std::string> log_;                   // since the last operation
};

}  // namespace zulisim
