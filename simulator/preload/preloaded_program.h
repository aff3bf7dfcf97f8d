#pragma once

#include <string>
#include <vector>

#include "simulator/program/served_program.h"

namespace zulisim {

// A dynamically linked program that uses the device through the preload library.
class PreloadedProgram : public ServedProgram {
 public:
  // The first of the `arguments` is the program's name. Without `root`, the program gets a
  // temporary folder. Throws ProgramError if the program cannot be served, and std::exception for
  // other failures.
  PreloadedProgram(const std::vector<std::string>& arguments, const std::string& root);

 protected:
  int Serve(Device& device) override;
};

}  // namespace zulisim
