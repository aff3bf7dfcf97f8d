#pragma once

#include <cstddef>

class ClientSession;

// What the benchmarks do with the library.
namespace bench {

// A connected session of its own, past KaloInit3, so that no sink is registered on its behalf.
class OwnSession {
 public:
  OwnSession();
  ~OwnSession();
  OwnSession(const OwnSession&) = delete;
  OwnSession& operator=(const OwnSession&) = delete;

  ClientSession* handle() { return session_; }

 private:
  ClientSession* session_;
};

// StartIoEx3 with a request and a reply of kMessageLength bytes. Ends the program when it fails.
void Command(void* handle);

// The same by StartIoEx on gKaloDllState.kaloSessionA.
void EarlierCommand();

// Leaves the log with `count` sinks on one file of the scratch folder. Nothing may log meanwhile.
void SetFileSinks(size_t count);

// Leaves the log with one sink that drops its lines.
void SetNullSink();

// The line that the peers write, and the same line at trace level.
void WriteLine(unsigned int length);
void TraceLine(unsigned int length);

// The five lines of a successful StartIoEx3, and the eleven of KaloInit3 and KaloCleanup3 for a
// second handle of an open session.
void WriteCommandLines(const void* session);
void WriteSecondHandleLines(const void* session);

}  // namespace bench
