#pragma once

#include <string>

#include "simulator/kernel/kernel_server.h"
#include "simulator/scenario/scenario.h"

namespace zulisim {

// Throws std::runtime_error, with the remedy, unless the kernel and this build support `kind`.
void CheckKernelServes(KernelServer::Kind kind);
// Throws std::runtime_error, with the remedy, unless this user can mount a file system that
// KernelServer serves.
void CheckCanMount();

// Throws std::invalid_argument if programs would not see the scenario as written: the kernel splits
// long messages and handles some errno values itself.
void CheckKernelCarries(const Scenario& scenario, KernelServer::Kind kind);

}  // namespace zulisim
