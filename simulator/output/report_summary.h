#pragma once

#include <string>

#include "simulator/output/report.h"

namespace zulisim {

// The figures, the timeline, the connections and the events of a run.
std::string ReportSummary(const Report& report);

}  // namespace zulisim
