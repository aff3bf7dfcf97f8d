#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "simulator/device/operation.h"
#include "simulator/output/exchange_history.h"

namespace zulisim {

// A report shows no more of a message, and `operations` hold no more.
inline constexpr std::size_t kReportedBytes = 1024;

// What a report shows of a run.
struct Report {
  std::string name;
  std::uint64_t total = 0;  // operations of the run; those beyond `operations` are only counted
  std::vector<OperationRecord> operations;
  std::vector<DiagramStep> steps;

  // The time since the first operation, "1.250".
  std::string Milliseconds(std::chrono::nanoseconds at) const;
};

// `text` as the content or a quoted attribute of an HTML element, so that no text can break what it
// stands in: bytes that are not UTF-8 become U+FFFD, and control characters except the line feed
// are shown as pictures.
std::string HtmlText(const std::string& text);

}  // namespace zulisim
