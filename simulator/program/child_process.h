#pragma once

#include <string>
#include <vector>

namespace zulisim {

// Keeps signals from ending zulisim before the program and its own cleaning up: while an object of
// this class lives, they are blocked in the whole process. RunChild passes them on. Construct it
// before the first thread starts.
class ChildSignals {
 public:
  ChildSignals();
  ~ChildSignals();
  ChildSignals(const ChildSignals&) = delete;
  ChildSignals& operator=(const ChildSignals&) = delete;
};

// Starts the file at `path` with `arguments` (the first is its name) and the environment of this
// process, waits for its end, and returns its exit status, or 128 plus the number of the signal
// that ended it. Needs a ChildSignals. Throws ProgramError when the file cannot be started.
int RunChild(const std::string& path, const std::vector<std::string>& arguments);

// The processes that the child has started and that have no other parent left: "12 (sh), 15 (cat)".
// Empty when all have ended.
std::string RemainingProcesses();

}  // namespace zulisim
