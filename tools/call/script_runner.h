#pragma once

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "common/colours.h"
#include "tools/call/log_capture.h"
#include "tools/call/script.h"

namespace kaloctl {

// Makes the calls of a script and prints the result of each.
class ScriptRunner {
 public:
  // `trace` includes the library's trace lines.
  ScriptRunner(std::ostream& out, const common::Colours& colours, bool trace);

  // Returns true if every call succeeded.
  bool Run(const std::vector<ScriptStep>& steps);

 private:
  struct CallResult;

  CallResult MakeCall(const ScriptStep& step);
  void PrintResult(const ScriptStep& step, const CallResult& result);

  std::ostream& out_;
  common::Colours colours_;
  LogCapture* const log_;
  // The handles of the script by name. A handle is null until a call sets it, and no call sets the
  // one that is named "null".
  std::map<std::string, void*> handles_;
};

}  // namespace kaloctl
