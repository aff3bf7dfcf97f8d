#pragma once

#include <string>
#include <vector>

#include "simulator/child_process.h"
#include "simulator/device.h"
#include "simulator/run_folder.h"

namespace zulisim {

// A program that is to be served a device through the preload library. Make it before the first
// thread.
class PreloadedProgram {
 public:
  // `arguments` begin with the program's name; an empty `root` stands for a temporary folder.
  // Throws ProgramError, or std::exception for what stands in the way of a start.
  PreloadedProgram(std::vector<std::string> arguments, const std::string& root);

  // Runs the program to its end and returns what RunChild returns.
  int Run(Device& device);

 private:
  const std::vector<std::string> arguments_;
  const std::string path_;
  const ChildSignals signals_;
  const TemporaryFolder folder_;
  std::string root_;
};

}  // namespace zulisim
