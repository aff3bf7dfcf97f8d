#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "simulator/output/exchange_history.h"
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

// Collects a run and writes one page at its end: a sequence diagram of driver, library and engine,
// complete in itself, with the bytes of each arrow. Of a long run the page shows the beginning, the
// end and the surroundings of each failure that the driver saw, and of others as far as there is
// room; all the rest is only counted.
class ReportWriter : public OutputWriter {
 public:
  // An operation, or a line of the log before it, and what is drawn for it.
  struct Entry {
    OperationRecord record;  // with the beginning of its bytes; of a line, the last one before it
    std::vector<DiagramStep> steps;
    std::uint64_t number = 0;  // in the run, from 1 on
    bool kept = false;
  };
  struct Connection {
    std::string client;
    int descriptor = -1;
    std::chrono::nanoseconds opened{};
    std::uint64_t firstSequence = 0;
    std::size_t operations = 0;
    std::size_t failures = 0;
    std::string end = "open until the end";
  };
  // Over the whole run.
  struct Counts {
    std::uint64_t operations = 0;
    std::uint64_t commands = 0;
    std::uint64_t failedCommands = 0;  // calls of the driver
    std::uint64_t failedOperations = 0;
    std::uint64_t losses = 0;
    std::uint64_t negative = 0;
    std::int64_t sent = 0;
    std::int64_t received = 0;
  };
  struct Report {
    ReportHead head;
    std::optional<int> exitStatus;
    Counts counts;
    std::map<std::uint64_t, Connection> connections;
    std::chrono::nanoseconds start{};
    std::chrono::nanoseconds end{};
    std::deque<Entry> entries;
  };

  ReportWriter(TextSink sink, ReportHead head);
  ~ReportWriter() override;
  ReportWriter(const ReportWriter&) = delete;
  ReportWriter& operator=(const ReportWriter&) = delete;
  void OnOperation(const OperationRecord& record) override;
  void OnLogLine(const LogLine& line) override;
  void OnExit(int status) override { report_.exitStatus = status; }

 private:
  void Count(const OperationRecord& record, const std::vector<DiagramStep>& steps);
  void Add(const OperationRecord& record, std::vector<DiagramStep> steps);

  const TextSink sink_;
  Report report_;
  ExchangeHistory history_;
  std::deque<Entry> recent_;  // the end so far
  std::uint64_t added_ = 0;
  std::uint64_t keepUntil_ = 0;  // by Entry::number
  OperationRecord last_;
};

}  // namespace zulisim
