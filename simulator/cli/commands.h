#pragma once

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

}  // namespace zulisim
