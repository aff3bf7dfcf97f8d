#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

class ClientSession;

// Functions with which the benchmarks use the library.
namespace bench {

// A connected session. It does not use KaloInit3, which would register a sink.
class ConnectedSession {
 public:
  ConnectedSession();
  ~ConnectedSession();
  ConnectedSession(const ConnectedSession&) = delete;
  ConnectedSession& operator=(const ConnectedSession&) = delete;

  ClientSession* handle() { return session_; }

 private:
  ClientSession* session_;
};

// Calls StartIoEx3 with a request and a reply of kMessageLength bytes. Ends the program if it
// fails.
void Command(void* handle);

// The same with StartIoEx, on gKaloDllState.kaloSessionA.
void CommandByStartIoEx();

// Replaces the log's sinks with `count` sinks on one file in the scratch folder. No other thread
// may log meanwhile.
void SetFileSinks(size_t count);

// Replaces the log's sinks with one that drops its lines.
void SetNullSink();

// Write the line that the other libraries write, at the ordinary level and at trace level.
void WriteLine(unsigned int length);
void TraceLine(unsigned int length);

// One line of the library's log, without its line number.
struct LoggedLine {
  std::string function;
  std::string text;
};

// Returns the lines that the library logs at the ordinary level during `action`. Removes all sinks.
std::vector<LoggedLine> RecordLines(const std::function<void()>& action);

// Logs `lines` again, to measure the cost of logging only.
void WriteLines(const std::vector<LoggedLine>& lines);

}  // namespace bench
