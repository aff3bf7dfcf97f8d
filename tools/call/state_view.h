#pragma once

#include <ostream>

#include <nlohmann/json.hpp>

#include "tools/call/destroyed_sessions.h"

namespace kaloctl {

// Every field of gKaloDllState, a line each. Addresses of sessions that `destroyed` knows to be
// destroyed are marked.
void PrintState(std::ostream& out, const DestroyedSessions& destroyed);

// The same by field: numbers and texts as they are, addresses as "0x..." or null.
nlohmann::ordered_json StateJson(const DestroyedSessions& destroyed);

}  // namespace kaloctl
