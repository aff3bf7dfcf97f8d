#pragma once

#include <map>

#include "transport/client_session.h"

namespace test {

// If `connectFailure` is set, the next connect throws the library's own exception with this detail.
// If `disconnectFails` is set, the next disconnect throws a std::runtime_error. Each happens once.
extern const char* connectFailure;
extern bool disconnectFails;

// The sessions that the library has connected and not closed, with their clients.
extern std::map<ClientSession*, const _GUID*>& connected;

}  // namespace test
