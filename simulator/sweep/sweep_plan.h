#pragma once

#include <string>
#include <vector>

#include "simulator/device/operation.h"

namespace zulisim {

// A fault for one run: at an operation of the reference run, or at that one and all later ones of
// its kind.
struct SweepFault {
  std::size_t operation = 0;  // index in the reference run
  std::string name;           // of SweepFaultNames
  bool repeated = false;
  std::string option;  // of 'zulisim run': "--fault read:3=EIO"
};

// "error", "lost" and so on.
std::vector<std::string> SweepFaultNames();

// Returns the faults to try, in the order of the operations. `names` selects faults and `which`
// operations, by position ("3", "5-8", "9-") or kind ("read"); an empty list selects all. With
// `bound`, reads and writes count within their client and command instead of over the whole run.
// Throws common::InputError for an unknown name or a malformed position.
std::vector<SweepFault> PlanSweep(const std::vector<OperationRecord>& operations,
                                  const std::vector<std::string>& names,
                                  const std::vector<std::string>& which, bool bound);

}  // namespace zulisim
