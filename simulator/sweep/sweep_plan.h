#pragma once

#include <string>
#include <vector>

#include "simulator/device/operation.h"

namespace zulisim {

// The fault of one run. It happens at one operation of the reference run, or at that one and all
// later ones of its kind.
struct SweepFault {
  std::size_t operation = 0;  // index in the reference run
  std::string name;           // of SweepFaultNames
  bool repeated = false;
  std::string option;  // the option of 'zulisim run': "--fault read:3=EIO"
};

// Returns the names of all faults: "error", "lost" and so on.
std::vector<std::string> SweepFaultNames();

// Returns the faults to try, in the order of the operations. `names` selects faults. `which`
// selects operations by position ("3", "5-8", "9-") or kind ("read"). An empty list selects all.
// With `bound`, reads and writes are counted within their client and command, not in the whole run.
// Throws common::InputError for an invalid position or kind.
std::vector<SweepFault> PlanSweep(const std::vector<OperationRecord>& operations,
                                  const std::vector<std::string>& names,
                                  const std::vector<std::string>& which, bool bound);

}  // namespace zulisim
