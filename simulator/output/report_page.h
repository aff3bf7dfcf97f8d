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

struct Report {
  std::string name;
  std::uint64_t total = 0;  // operations of the run; those beyond `operations` are only counted
  std::vector<OperationRecord> operations;
  std::vector<StoryStep> steps;
};

// The page in HTML. It refers to nothing outside of itself.
std::string ReportPage(const Report& report);

// --- Its parts. ---

std::string ReportSummary(const Report& report);  // figures, timeline, connections, events
std::string ReportDiagram(const Report& report);  // the steps; long ordinary runs are folded
std::string ReportMilliseconds(const Report& report, std::chrono::nanoseconds at);

}  // namespace zulisim
