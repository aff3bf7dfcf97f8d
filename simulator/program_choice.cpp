#include "simulator/program_choice.h"

#include "simulator/kernel_modes.h"
#include "simulator/kernel_program.h"
#include "simulator/preloaded_program.h"

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
