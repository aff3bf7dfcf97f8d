#include "bench/library_driver.h"

#include <cstdio>
#include <cstdlib>

#include "api/kalo_dll.h"
#include "bench/free_device.h"
#include "log/log_line.h"
#include "transport/client_session.h"

namespace bench {

namespace {

constexpr char kCommand[] = "StartIoEx3";

thread_local unsigned char request[kMessageLength];
thread_local unsigned char reply[kMessageLength];

void Check(KALO_DLL_STATUS status) {
  if (status == KALO_DLL_STATUS_SUCCESS) return;
  std::fprintf(stderr, "a command failed with status %u\n", static_cast<unsigned int>(status));
  std::exit(1);
}

class NullSink : public LogSink {
 public:
  void logMessage(const char*) override {}
};

void RemoveSinks() {
  for (LogSink* sink : Logger::logBase.sinks) delete sink;
  Logger::logBase.sinks.clear();
}

// Splits each message, such as "StartIoEx3:36: InputBufferLength: 64\n", into function and text.
class RecordingSink : public LogSink {
 public:
  void logMessage(const char* message) override {
    const std::string line = message;
    const size_t colon = line.find(':');
    lines.push_back({line.substr(0, colon), line.substr(line.find(": ", colon + 1) + 2)});
  }

  std::vector<LoggedLine> lines;
};

}  // namespace

ConnectedSession::ConnectedSession() : session_(new ClientSession) {
  session_->ConnectClient(&ClientSession::KALO_CLIENT_GUID);
}

ConnectedSession::~ConnectedSession() { delete session_; }

void Command(void* handle) {
  Check(StartIoEx3(handle, request, sizeof request, reply, sizeof reply, nullptr, nullptr));
}

void CommandByStartIoEx() {
  Check(StartIoEx(request, sizeof request, reply, sizeof reply, nullptr, nullptr));
}

void SetFileSinks(size_t count) {
  RemoveSinks();
  for (size_t i = 0; i < count; ++i) {
    Logger::logBase.sinks.push_back(new FileLogSink(ScratchPath("log").c_str()));
  }
}

void SetNullSink() {
  RemoveSinks();
  Logger::logBase.sinks.push_back(new NullSink);
}

void WriteLine(unsigned int length) {
  KALO_LOG_FULL(logging::kOrdinaryLevel, kCommand, 36) << "InputBufferLength: " << length << '\n';
}

void TraceLine(unsigned int length) {
  KALO_LOG_FULL(logging::kTraceLevel, kCommand, 36) << "InputBufferLength: " << length << '\n';
}

std::vector<LoggedLine> RecordLines(const std::function<void()>& action) {
  RemoveSinks();
  auto* sink = new RecordingSink;
  Logger::logBase.sinks.push_back(sink);
  action();
  std::vector<LoggedLine> lines = sink->lines;
  RemoveSinks();
  return lines;
}

void WriteLines(const std::vector<LoggedLine>& lines) {
  for (const LoggedLine& line : lines) {
    KALO_LOG_AS(logging::kOrdinaryLevel, line.function) << line.text;
  }
}

}  // namespace bench
