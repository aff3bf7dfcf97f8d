#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "common/colours.h"

namespace kaloctl {

struct DoctorOptions {
  // The command of the round trip.
  uint32_t command = 0;
  // Names of checks to leave out.
  std::vector<std::string> skip;
};

// The names of all checks, in order.
std::vector<std::string> DoctorChecks();

// Runs the checks and prints a line for each, with a remedy below one that failed. A check that
// needs one that failed is not made. True when none failed.
bool RunDoctor(std::ostream& out, const common::Colours& colours, const DoctorOptions& options);

}  // namespace kaloctl
