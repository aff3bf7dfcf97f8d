#pragma once

#include "simulator/scenario/scenario.h"

namespace zulisim {

// Throws std::runtime_error, with the remedy, unless the kernel and this build can serve a file.
void CheckKernelServes();
// Throws std::runtime_error, with the remedy, unless this user can mount a file system that
// KernelServer serves.
void CheckCanMount();

// Throws std::invalid_argument if programs would not see the scenario as written: the kernel splits
// long messages and handles some errno values itself.
void CheckKernelCarries(const Scenario& scenario);

}  // namespace zulisim
