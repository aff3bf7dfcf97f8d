#pragma once

#include <string>
#include <vector>

#include "simulator/program/served_program.h"

namespace zulisim {

// A dynamically linked program that is served through the preload library.
class PreloadedProgram : public ServedProgram {
 public:
  // `arguments` begin with the program's name; an empty `root` stands for a temporary folder.
  // Throws ProgramError, or std::exception for what stands in the way of a start.
  PreloadedProgram(const std::vector<std::string>& arguments, const std::string& root);

 protected:
  int Serve(Device& device) override;
  std::string ExplainUnused() const override;

 private:
  bool loaded_ = false;
};

}  // namespace zulisim
