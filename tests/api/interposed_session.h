#pragma once

#include <map>

#include "transport/client_session.h"

namespace test {

// Functions of the library that can throw exceptions that no device failure causes.
enum class Point { kNone, kConnectClient, kDisconnectAllClients };

// Throws once, when a call reaches the point: the library's exception with the detail, or its
// std::runtime_error if the detail is null.
struct InjectedFailure {
  Point point = Point::kNone;
  const char* detail = nullptr;
};
extern InjectedFailure injected;

// The sessions that the library has connected and not closed, with their clients.
extern std::map<ClientSession*, const _GUID*>& connected;

}  // namespace test
