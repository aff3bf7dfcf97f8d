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
constexpr char kInit[] = "KaloInit3";
constexpr char kCleanup[] = "KaloCleanup3";

thread_local unsigned char request[kMessageLength];
thread_local unsigned char reply[kMessageLength];

void Check(KALO_DLL_STATUS status) {
  if (status == KALO_DLL_STATUS_SUCCESS) return;
  std::fprintf(stderr, "a command returned %u\n", static_cast<unsigned int>(status));
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

void WriteCount(const char* function, const char* text) {
  KALO_LOG_AS(logging::kOrdinaryLevel, function) << text << logging::Hex(2);
}

}  // namespace

OwnSession::OwnSession() : session_(new ClientSession) {
  session_->ConnectClient(&ClientSession::KALO_CLIENT_GUID);
}

OwnSession::~OwnSession() { delete session_; }

void Command(void* handle) {
  Check(StartIoEx3(handle, request, sizeof request, reply, sizeof reply, nullptr, nullptr));
}

void EarlierCommand() {
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

void WriteCommandLines(const void* session) {
  using logging::kOrdinaryLevel;
  KALO_LOG_AS(kOrdinaryLevel, kCommand) << "Executing call to StartIoEx3() API...";
  KALO_LOG_AS(kOrdinaryLevel, kCommand) << "CpSession: " << logging::Address{session} << '\n';
  KALO_LOG_AS(kOrdinaryLevel, kCommand) << "InputBufferLength: " << kMessageLength << '\n';
  KALO_LOG_AS(kOrdinaryLevel, kCommand) << "OutputBufferLength: " << kMessageLength << '\n';
  KALO_LOG_AS(kOrdinaryLevel, kCommand) << "Call to StartIoEx3() API completed successfully.";
}

void WriteSecondHandleLines(const void* session) {
  using logging::kOrdinaryLevel;
  KALO_LOG_AS(kOrdinaryLevel, kInit) << "Executing call to KaloInit3() API ...";
  KALO_LOG_AS(kOrdinaryLevel, kInit) << "KALO DREM Handle A " << logging::Address{session};
  WriteCount(kInit, "KALO DREM Ref Cnt A with FW API_32 ");
  KALO_LOG_AS(kOrdinaryLevel, kInit) << "Call to KaloInit3() API completed successfully. ";
  KALO_LOG_AS(kOrdinaryLevel, kInit) << "Returned DREM Handle " << logging::Address{session};
  KALO_LOG_AS(kOrdinaryLevel, kCleanup) << "Executing call to KaloCleanup3() API...";
  WriteCount(kCleanup, "KALO DREM Ref Cnt A ");
  WriteCount(kCleanup, "KALO DREM Ref Cnt A ");
  WriteCount(kCleanup, "KALO DREM Ref Cnt B ");
  WriteCount(kCleanup, "KALO DREM Ref Cnt B ");
  KALO_LOG_AS(kOrdinaryLevel, kCleanup) << "Call to KaloCleanup3() API completed successfully.";
}

}  // namespace bench
