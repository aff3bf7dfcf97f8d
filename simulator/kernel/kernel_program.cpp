#include "simulator/kernel/kernel_program.h"

#include "simulator/kernel/kernel_server.h"
#include "simulator/kernel/private_tree.h"
#include "simulator/program/program.h"

namespace zulisim {

KernelProgram::KernelProgram(const std::vector<std::string>& arguments, const std::string& root)
    : ServedProgram(FindProgram(arguments.front()), arguments, root) {}

int KernelProgram::Serve(Device& device) {
  EnterPrivateTree(folder(), root());
  KernelServer server(device, KernelServer::Kind::kFile, "/dev/zuli", true);
  const int status = RunChild(path(), arguments());
  server.WaitForCloses();
  return status;
}

}  // namespace zulisim
