#pragma once

#include <string>

#include "simulator/output/report.h"

namespace zulisim {

// The steps as a sequence diagram; long ordinary runs are folded.
std::string ReportDiagram(const Report& report);

}  // namespace zulisim
