#pragma once

#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "tools/call/log_capture.h"
#include "common/palette.h"
#include "tools/call/script.h"
#include "tools/call/destroyed_sessions.h"

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
  ScriptRunner(std::ostream& out, const Palette& palette, const RunOptions& options);

  // True when every call was made and succeeded.
  bool Run(const std::vector<ScriptStep>& steps);

  const SessionBook& book() const { return book_; }

 private:
  struct Outcome;

  bool RunStep(const ScriptStep& step);
  bool RefusesDestroyed(const ScriptStep& step) const;
  uint32_t MakeCall(const ScriptStep& step, Outcome& outcome);
  uint32_t SendCommand(const ScriptStep& step, Outcome& outcome);
  void PrintOutcome(const ScriptStep& step, uint32_t status, const Outcome& outcome);
  void PrintCounts();
  const char* Arrow() const;

  std::ostream& out_;
  Palette palette_;
  RunOptions options_;
  LogCapture log_;
  SessionBook book_;
  // The handle variables of the script, null until a call writes them.
  std::map<std::string, void*> handles_;
};

}  // namespace kaloctl
