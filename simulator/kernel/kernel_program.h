#pragma once

#include <string>
#include <vector>

#include "simulator/program/served_program.h"

namespace zulisim {

// Runs any program in a file tree of its own, in which the kernel's FUSE serves the device. The
// calling process enters that tree too.
class KernelProgram : public ServedProgram {
 public:
  // See PreloadedProgram.
  KernelProgram(const std::vector<std::string>& arguments, const std::string& root);

 protected:
  int Serve(Device& device) override;
};

}  // namespace zulisim
