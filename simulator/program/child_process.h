#pragma once

#include <string>
#include <vector>

namespace zulisim {

// Blocks the signals that would end zulisim before the program ends and zulisim has removed its
// files. They stay blocked in the whole process while an object of this class exists; RunChild
// sends them to the child. Construct it before the first thread starts.
class ChildSignals {
 public:
  ChildSignals();
  ~ChildSignals();
  ChildSignals(const ChildSignals&) = delete;
  ChildSignals& operator=(const ChildSignals&) = delete;
};

// Starts the file at `path` with `arguments` (the first is the program's name) and this process's
// environment, and waits until it ends. Returns its exit status, or 128 plus the number of the
// signal that ended it. Needs a ChildSignals object. Throws ProgramError if the file cannot be
// started.
int RunChild(const std::string& path, const std::vector<std::string>& arguments);

// Returns the processes that the child started and that still run without their parent, such as "12
// (sh), 15 (cat)". Returns "" if there are none.
std::string RemainingProcesses();

}  // namespace zulisim
