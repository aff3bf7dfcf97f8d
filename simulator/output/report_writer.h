#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "simulator/device/operation.h"
#include "simulator/output/exchange_history.h"

namespace zulisim {

// Collects operations and writes one page at its end: a sequence diagram of driver, library and
// engine, complete in itself, without script, with the bytes behind each arrow.
class ReportWriter : public OperationObserver {
 public:
  using Sink = std::function<void(const std::string& text)>;

  // `name` is that of the run.
  ReportWriter(Sink sink, std::string name);
  ~ReportWriter() override;
  ReportWriter(const ReportWriter&) = delete;
  ReportWriter& operator=(const ReportWriter&) = delete;
  void OnOperation(const OperationRecord& record) override;

 private:
  Sink sink_;
  const std::string name_;
  std::uint64_t total_ = 0;
  std::vector<OperationRecord> operations_;  // the first of them, with the beginning of their bytes
  std::vector<StoryStep> steps_;
  Story story_;
};

}  // namespace zulisim
