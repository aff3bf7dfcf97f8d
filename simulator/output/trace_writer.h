#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "simulator/device/operation.h"
#include "simulator/output/output_file.h"
#include "simulator/output/output_writer.h"

namespace zulisim {

// Turns operations into Chrome trace events, for the Perfetto viewer: a track for each connection,
// a slice for each operation and around those of one exchange another, and instants for failures,
// faults, reconnects and lines of the log. Events are passed on as soon as they are complete; the
// viewer also takes an array that lacks its end.
class TraceWriter : public OutputWriter {
 public:
  // `name` is that of the program.
  TraceWriter(TextSink sink, const std::string& name);
  ~TraceWriter() override;
  TraceWriter(const TraceWriter&) = delete;
  TraceWriter& operator=(const TraceWriter&) = delete;
  void OnOperation(const OperationRecord& record) override;
  void OnLogLine(const LogLine& line) override { log_.push_back(LogLineText(line)); }

 private:
  // An exchange that may go on: its slice has to come before those of its operations.
  struct Exchange {
    OperationRecord request;
    std::optional<std::uint32_t> status;
    std::string failure;
    std::chrono::nanoseconds end{};
    std::vector<std::string> events;
  };

  void Emit(const std::string& event);
  // The lines of the log since the last operation, at that moment.
  void EmitLog(std::chrono::nanoseconds at);
  std::string TrackName(const OperationRecord& record) const;
  std::string OperationSlice(const OperationRecord& record) const;
  std::string ExchangeSlice(const Exchange& exchange) const;
  std::string Instant(const OperationRecord& record, const std::string& name) const;
  // What follows from an operation for the exchange on its connection.
  void Continue(const OperationRecord& record, const std::vector<std::string>& events);
  void Finish(std::uint64_t connection);

  const TextSink sink_;
  bool first_ = true;
  std::optional<std::chrono::nanoseconds> start_;
  std::map<std::uint64_t, Exchange> exchanges_;  // by connection
  std::vector<std::string> log_;                 // since the last operation
  bool logTrack_ = false;                        // it has its name
  std::chrono::nanoseconds last_{};
  std::set<std::string> lost_;  // clients whose device was lost and is not back
};

}  // namespace zulisim
