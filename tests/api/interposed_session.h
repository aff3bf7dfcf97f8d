#pragma once

#include <map>

#include "transport/client_session.h"

namespace test {

// The library throws these exceptions once, although no device fails: its own exception with this
// detail when a session connects, and a std::runtime_error when one disconnects.
extern const char* connectFailure;
extern bool disconnectFails;

// The sessions that the library has connected and not closed, with their clients.
extern std::map<ClientSession*, const _GUID*>& connected;

}  // namespace test
