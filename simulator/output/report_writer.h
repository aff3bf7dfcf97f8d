#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "simulator/output/exchange_history.h"
#include "simulator/output/output_file.h"
#include "simulator/output/output_writer.h"
#include "simulator/output/report_page.h"

namespace zulisim {

// Collects a run and writes one page at its end: a sequence diagram of driver, library and engine,
// complete in itself, with the bytes of each arrow. Of a long run the page shows the beginning, the
// end and the surroundings of each failure that the driver saw, and of others as far as there is
// room; all the rest is only counted.
class ReportWriter : public OutputWriter {
 public:
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
  std::deque<Report::Entry> recent_;  // the end so far
  std::uint64_t added_ = 0;
  std::uint64_t keepUntil_ = 0;  // by Report::Entry::number
  OperationRecord last_;
};

}  // namespace zulisim
