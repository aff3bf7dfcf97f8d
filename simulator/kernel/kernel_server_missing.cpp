// Takes the place of kernel_server.cpp in a build without libfuse3.

#include <stdexcept>

#include "simulator/kernel/kernel_server.h"

namespace zulisim {

class KernelOperations {};

KernelServer::KernelServer(Device&, Kind kind, const std::string& path, bool)
    : kind_(kind), path_(path) {
  throw std::runtime_error("this zulisim was built without libfuse3 and cannot serve '" + path +
                           "' through the kernel: install libfuse3-dev and build again. "
                           "'zulisim run --device preload' serves dynamically linked programs");
}

KernelServer::~KernelServer() = default;

void KernelServer::WaitForCloses() { static_cast<void>(kind_); }

}  // namespace zulisim
