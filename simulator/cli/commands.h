#pragma once

#include "common/command_line.h"

namespace zulisim {

// zulisim itself failed.
inline constexpr int kOwnFailure = 125;
// With --strict: a requested reply or fault never happened.
inline constexpr int kUnfulfilled = 122;

// Each of these functions adds a command to `program`.
void DefineRun(common::Command* program);
void DefineServe(common::Command* program);
void DefineTell(common::Command* program);
void DefineCheck(common::Command* program);
void DefineRecord(common::Command* program);
void DefineReplay(common::Command* program);
void DefineShow(common::Command* program);
void DefineSweep(common::Command* program);

}  // namespace zulisim
