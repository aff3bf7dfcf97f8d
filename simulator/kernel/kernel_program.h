#pragma once

#include <string>
#include <vector>

#include "simulator/program/served_program.h"

namespace zulisim {

// Any program, served through the kernel's FUSE in a file tree of its own. This process enters that
// tree too.
class KernelProgram : public ServedProgram {
 public:
  // As for PreloadedProgram.
  KernelProgram(const std::vector<std::string>& arguments, const std::string& root);

 protected:
  int Serve(Device& device) override;
};

}  // namespace zulisim
