#pragma once

#include <functional>
#include <string>
#include <vector>

#include "common/command_line.h"

namespace zulisim {

// zulisim's own failure; the same for every command that starts a program.
inline constexpr int kOwnFailure = 125;
// With --strict, something that was asked for has not happened.
inline constexpr int kMissed = 122;

// Each adds a command to `program`.
void DefineRun(common::Command* program);
void DefineServe(common::Command* program);
void DefineTell(common::Command* program);
void DefineCheck(common::Command* program);
void DefineRecord(common::Command* program);
void DefineReplay(common::Command* program);
void DefineShow(common::Command* program);
void DefineSweep(common::Command* program);

// Parses the command line with the commands that `define` adds, runs one, and returns the exit
// status. Prints a failure on standard error.
int RunCommandLine(const std::function<void(common::Command*)>& define, int argc,
                   const char* const* argv);

// Performs 'zulisim' with the words of a run's command line, {"run", "./driver"}, quietly, and
// writes the operations to the recording `file`. Returns the exit status.
int RunWords(const std::vector<std::string>& words, const std::string& file);

}  // namespace zulisim
