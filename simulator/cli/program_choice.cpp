#include "simulator/cli/program_choice.h"

#include "simulator/kernel/kernel_support.h"
#include "simulator/kernel/kernel_program.h"
#include "simulator/preload/preloaded_program.h"

namespace zulisim {

std::unique_ptr<ServedProgram> MakeServedProgram(const std::string& attachment,
                                                 const std::vector<std::string>& arguments,
                                                 const std::string& root,
                                                 const Scenario& scenario) {
  if (attachment == kPreloadAttachment) return std::make_unique<PreloadedProgram>(arguments, root);
  CheckKernelCarries(scenario, KernelServer::Kind::kFile);
  return std::make_unique<KernelProgram>(arguments, root);
}

}  // namespace zulisim
