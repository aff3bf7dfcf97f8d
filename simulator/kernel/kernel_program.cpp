#include "simulator/kernel/kernel_program.h"

#include <utility>

#include "simulator/kernel/kernel_support.h"
#include "simulator/kernel/kernel_server.h"
#include "simulator/kernel/private_tree.h"
#include "simulator/program/program.h"

namespace zulisim {
namespace {

std::string Servable(const std::string& name) {
  std::string path = FindProgram(name);
  CheckKernelServes(KernelServer::Kind::kFile);
  return path;
}

}  // namespace

KernelProgram::KernelProgram(std::vector<std::string> arguments, const std::string& root)
    : arguments_(std::move(arguments)), path_(Servable(arguments_.front())) {
  root_ = PrepareRoot(root.empty() ? folder_.path() + "/root" : root);
}

int KernelProgram::Run(Device& device) {
  EnterPrivateTree(folder_.path(), root_);
  KernelServer server(device, KernelServer::Kind::kFile, "/dev/zuli", true);
  const int status = RunChild(path_, arguments_, {});
  server.Settle();
  return status;
}

}  // namespace zulisim
