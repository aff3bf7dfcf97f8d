#pragma once

#include <string>
#include <vector>

#include "simulator/program/child_process.h"
#include "simulator/program/run_folder.h"
#include "simulator/program/served_program.h"

namespace zulisim {

// A dynamically linked program that is served through the preload library.
class PreloadedProgram : public ServedProgram {
 public:
  // `arguments` begin with the program's name; an empty `root` stands for a temporary folder.
  // Throws ProgramError, or std::exception for what stands in the way of a start.
  PreloadedProgram(std::vector<std::string> arguments, const std::string& root);

  int Run(Device& device) override;

 private:
  const std::vector<std::string> arguments_;
  const std::string path_;
  const ChildSignals signals_;
  const TemporaryFolder folder_;
  std::string root_;
};

}  // namespace zulisim
