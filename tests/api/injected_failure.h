#pragma once

namespace test {

// Functions of the library that can throw exceptions that no device failure causes.
enum class Point { kNone, kConnectClient, kIoMessage, kDisconnectAllClients };

// Throws one of three kinds of exception when a call reaches a point for the n-th time, counted
// from 0.
struct InjectedFailure {
  enum Kind { kRefuse, kBreak, kEscape };
  bool IsDueAt(Point at) { return at == point && left-- == 0; }

  Point point = Point::kNone;
  Kind kind = kRefuse;
  unsigned left = 0;
  const char* detail = "refused";  // of kRefuse
};
// The injected failure of the current call.
extern InjectedFailure injected;

}  // namespace test
