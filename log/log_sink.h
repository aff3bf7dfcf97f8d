#pragma once

/* For C++ only. */
#ifndef __cplusplus
#error "log/log_sink.h is for C++ only; C drivers include api/kalo_dll.h and api/kalo_dll_state.h"
#endif

#include <ostream>

// Receives finished log lines. The log owns a sink that was appended to Logger::logBase.sinks, and
// deletes it at unload.
class LogSink {
 public:
  LogSink();
  LogSink(const LogSink&) = delete;
  LogSink& operator=(const LogSink&) = delete;

  // Receives one NUL-terminated line; the caller keeps ownership of `message`. Runs in the logging
  // thread under the log's lock, one line at a time, so it must not log. The log catches every
  // exception and still delivers the line to the other sinks. It also catches a cancellation of the
  // thread, which aborts a glibc process. A sink may fork and may exit the process; then no sink is
  // deleted.
  virtual void logMessage(const char* message) = 0;

  virtual ~LogSink();
};

// Inserts each line into a stream, without a line end and without a flush.
class StreamLogSink : public LogSink {
 public:
  // The caller owns `stream`, which must outlive the sink.
  explicit StreamLogSink(std::ostream* stream);

  // A null message only sets the stream's badbit.
  void logMessage(const char* message) override;

  ~StreamLogSink() override;

  std::ostream* stream;
};

// Appends each line to a file and flushes it, so the file is complete even if the process crashes.
class FileLogSink : public StreamLogSink {
 public:
  // Opens `path` for appending and creates it if it is missing. If it cannot be opened, the sink
  // drops its lines.
  explicit FileLogSink(const char* path);

  void logMessage(const char* message) override;

  // Closes the file.
  ~FileLogSink() override;
};
