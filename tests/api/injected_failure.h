#pragma once

namespace test {

// Where the library's classes can be made to throw what the device cannot bring about.
enum class Point { kNone, kConnectClient, kIoMessage, kDisconnectAllClients };

// One of the three kinds of exception, at one occurrence (from 0 on) of a point in a call.
struct InjectedFailure {
  enum Kind { kRefuse, kBreak, kEscape };
  bool IsDueAt(Point at) { return at == point && left-- == 0; }

  Point point = Point::kNone;
  Kind kind = kRefuse;
  unsigned left = 0;
};
// Of the call that runs.
extern InjectedFailure injected;

}  // namespace test
