// Takes the place of kernel_server.cpp in a build without libfuse3.

#include <stdexcept>

#include "simulator/kernel/kernel_server.h"

namespace zulisim {

class KernelOperations {};

KernelServer::KernelServer(Device&, Kind kind, const std::string& path, bool)
    : kind_(kind), path_(path) {
  throw std::logic_error("'" + path + "' cannot be served without libfuse3");
}

bool KernelServer::Built() { return false; }

KernelServer::~KernelServer() = default;

void KernelServer::WaitForCloses() { static_cast<void>(kind_); }

}  // namespace zulisim
