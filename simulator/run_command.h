#pragma once

#include <string>
#include <vector>

#include "simulator/scenario.h"

namespace zulisim {

struct RunOptions {
  std::string root;            // empty: a temporary folder
  std::string transcriptFile;  // empty: standard error
  bool quiet = false;          // no transcript on standard error
  Scenario scenario;
  std::vector<std::string> program;  // its name and its arguments
};

// Serves the program the device through the preload library until it ends, and returns what
// RunChild returns. Throws ProgramError, or std::exception for what stands in the way before the
// start.
int Run(const RunOptions& options);

}  // namespace zulisim
