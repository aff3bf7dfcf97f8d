#pragma once

#include <string>

#include "simulator/output/exchange_history.h"
#include "simulator/output/output_file.h"
#include "simulator/output/report.h"

namespace zulisim {

// Collects operations and writes one page at its end: a sequence diagram of driver, library and
// engine, complete in itself, without script, with the bytes of each arrow.
class ReportWriter : public OperationObserver {
 public:
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
