#pragma once

#include <nlohmann/json.hpp>

#include "tools/call/destroyed_sessions.h"

namespace kaloctl {

// The fields of gKaloDllState by name. A session is null, or its address and whether it is one that
// `destroyed` knows to be destroyed.
nlohmann::ordered_json StateJson(const DestroyedSessions& destroyed);

// The same as lines of text.
std::string StateText(const DestroyedSessions& destroyed);

}  // namespace kaloctl
