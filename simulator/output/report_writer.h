#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "simulator/output/exchange_history.h"
#include "simulator/output/output_file.h"

namespace zulisim {

// Collects operations and writes one page at its end: a sequence diagram of driver, library and
// engine, complete in itself, without script, with the bytes of each arrow.
class ReportWriter : public OperationObserver {
 public:
  // What the page shows.
  struct Report {
    std::string name;
    std::uint64_t total = 0;  // operations of the run; those beyond `operations` are only counted
    std::vector<OperationRecord> operations;  // with the beginning of their bytes
    std::vector<DiagramStep> steps;
  };

  // `name` is that of the run.
  ReportWriter(TextSink sink, const std::string& name);
  ~ReportWriter() override;
  ReportWriter(const ReportWriter&) = delete;
  ReportWriter& operator=(const ReportWriter&) = delete;
  void OnOperation(const OperationRecord& record) override;

 private:
  const TextSink sink_;
  Report report_;
  ExchangeHistory history_;
};

}  // namespace zulisim
