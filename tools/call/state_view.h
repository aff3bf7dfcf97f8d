#pragma once

#include <ostream>

#include "tools/call/destroyed_sessions.h"

namespace kaloctl {

// Every field of gKaloDllState, a line each. Addresses of sessions that `destroyed` knows to be
// destroyed are marked.
void PrintState(std::ostream& out, const DestroyedSessions& destroyed);

}  // namespace kaloctl
