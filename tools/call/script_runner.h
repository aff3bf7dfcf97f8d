#pragma once

#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "common/colours.h"
#include "tools/call/destroyed_sessions.h"
#include "tools/call/log_capture.h"
#include "tools/call/script.h"

namespace kaloctl {

struct RunOptions {
  // One line a call, without counts, replies and log.
  bool brief = false;
  bool showLog = true;
  bool trace = false;
  // Make calls with a destroyed session, although they read freed memory.
  bool useDestroyed = false;
};

// Makes the calls of a script and prints what each did.
class ScriptRunner {
 public:
  ScriptRunner(std::ostream& out, const common::Colours& colours, const RunOptions& options);

  // True when every call was made and succeeded.
  bool Run(const std::vector<ScriptStep>& steps);

  const DestroyedSessions& destroyed() const { return destroyed_; }

 private:
  struct CallResult;

  bool RunStep(const ScriptStep& step);
  bool RefusesDestroyed(const ScriptStep& step) const;
  uint32_t MakeCall(const ScriptStep& step, CallResult& result);
  void PrintResult(const ScriptStep& step, uint32_t status, const CallResult& result);
  const char* Arrow() const;

  std::ostream& out_;
  common::Colours colours_;
  RunOptions options_;
  LogCapture log_;
  DestroyedSessions destroyed_;
  // The handle variables of the script, null until a call writes them.
  std::map<std::string, void*> handles_;
};

}  // namespace kaloctl
