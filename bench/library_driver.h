#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

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

// A line of the library's log, without its number.
struct LoggedLine {
  std::string function;
  std::string text;
};

// What the library logs at the ordinary level while `action` runs. Leaves no sink.
std::vector<LoggedLine> LinesOf(const std::function<void()>& action);

// Logs them once more, which is what the log alone costs.
void WriteLines(const std::vector<LoggedLine>& lines);

}  // namespace bench
