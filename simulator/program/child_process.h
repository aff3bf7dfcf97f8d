#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace zulisim {

// Signals that end a program are not to end this one before it: as long as an object of this class
// lives, they are held back in the whole process and passed on to the child, and a reader of the
// transcript that goes away ends nothing. Make it before the first thread.
class ChildSignals {
 public:
  ChildSignals();
  ~ChildSignals();
  ChildSignals(const ChildSignals&) = delete;
  ChildSignals& operator=(const ChildSignals&) = delete;
};

// Starts the file at `path` with `arguments` (the first is its name) and `environment` set on top
// of this process's own, waits for its end, and returns its exit status, or 128 and the signal's
// number for one that a signal ended. Throws ProgramError when it cannot be started.
int RunChild(const std::string& path, const std::vector<std::string>& arguments,
             const std::map<std::string, std::string>& environment);

}  // namespace zulisim
