#pragma once

#include <ostream>

#include "tools/call/destroyed_sessions.h"

namespace kaloctl {

// Every field of gKaloDllState, a line each. Addresses of sessions that `book` knows to be
// destroyed are marked.
void PrintState(std::ostream& out, const SessionBook& book);

}  // namespace kaloctl
