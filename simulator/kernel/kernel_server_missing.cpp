// Replaces kernel_server.cpp in a build without libfuse3.

#include <stdexcept>

#include "simulator/kernel/kernel_server.h"

namespace zulisim {

class KernelOperations {};

KernelServer::KernelServer(Device&, Kind, const std::string& path, bool) : path_(path) {
  throw std::logic_error("this zulisim was built without libfuse3");
}

bool KernelServer::Built() { return false; }

KernelServer::~KernelServer() = default;

void KernelServer::WaitForCloses() {}

}  // namespace zulisim
