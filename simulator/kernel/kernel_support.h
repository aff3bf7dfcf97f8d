#pragma once

#include <string>

#include "simulator/kernel/kernel_server.h"
#include "simulator/scenario/scenario.h"

namespace zulisim {

// Why the kernel cannot serve in this way, and which ways would work here.
std::string MissingSupport(KernelServer::Kind kind);
// Which other ways would work here.
std::string OtherWays(KernelServer::Kind kind);

// Throws std::runtime_error with the text of MissingSupport unless the kernel offers the way.
void CheckKernelServes(KernelServer::Kind kind);

// Throws std::invalid_argument for what the kernel would not pass on unchanged: messages that it
// would split, and errno values that mean something to the kernel itself.
void CheckKernelCarries(const Scenario& scenario, KernelServer::Kind kind);

}  // namespace zulisim
