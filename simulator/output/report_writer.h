#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "simulator/output/output_file.h"
#include "simulator/output/output_writer.h"

namespace zulisim {

// What the page says of the run. An empty text is left out.
struct ReportHead {
  std::string program;
  std::string instructions;
  std::string version;
  std::string date;
};

// Collects a run and writes one HTML page at its end: report.html with its style and script, and
// the run as JSON within. The page refers to nothing outside of itself. Of a long run it holds the
// first and last 100,000 lines and those around each failure; all others are only counted.
class ReportWriter : public OutputWriter {
 public:
  // `clock` is the system clock's time, since its epoch, at the zero of Now().
  ReportWriter(TextSink sink, ReportHead head, std::chrono::nanoseconds clock);
  void OnOperation(const OperationRecord& record) override;
  void OnLogLine(const LogLine& line) override;
  void OnNote(const std::string& text, std::chrono::nanoseconds time) override;
  void Finish(const RunSummary& summary, std::optional<int> status) override;

 private:
  // An operation, a line of the log, or a note.
  struct Row {
    std::string json;
    std::uint64_t number = 0;  // in the run, from 1 on
    bool kept = false;
  };

  void Add(const nlohmann::ordered_json& row, bool failed);
  double SinceStart(std::chrono::nanoseconds time);

  const TextSink sink_;
  const ReportHead head_;
  const std::chrono::nanoseconds clock_;
  std::vector<Row> kept_;
  std::deque<Row> recent_;
  std::uint64_t added_ = 0;
  std::uint64_t keepUntil_;  // by Row::number
  std::size_t held_ = 0;     // bytes of all rows
  std::optional<std::chrono::nanoseconds> start_;
};

}  // namespace zulisim
