#pragma once

#include <string>

#include "simulator/kernel/kernel_server.h"
#include "simulator/scenario/scenario.h"

namespace zulisim {

// Throws std::runtime_error, with the remedy, unless the kernel and this build offer the way.
void CheckKernelServes(KernelServer::Kind kind);
// Throws std::runtime_error, with the remedy, unless this user can mount a file system that
// KernelServer serves.
void CheckCanMount();

// Throws std::invalid_argument for a scenario that programs would not see unchanged: the kernel
// splits long messages, and interprets some errno values itself.
void CheckKernelCarries(const Scenario& scenario, KernelServer::Kind kind);

}  // namespace zulisim
