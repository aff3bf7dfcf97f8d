#pragma once

/* For C++ only. */
#ifndef __cplusplus
#error "log/log_sink.h is for C++ only; C drivers include api/kalo_dll.h and api/kalo_dll_state.h"
#endif

#include <ostream>

// Receives finished log lines. Once appended to Logger::logBase.sinks a sink belongs to the log,
// which deletes it at unload.
class LogSink {
 public:
  LogSink();
  LogSink(const LogSink&) = delete;
  LogSink& operator=(const LogSink&) = delete;

  // Delivers one NUL-terminated line; `message` stays the caller's. Called on the logging thread
  // under the log's lock, one line at a time, so it must not log itself. What it throws is
  // swallowed, and the other sinks get the line all the same; so is a cancellation of the thread,
  // which ends a glibc process. It may fork, and it may end the process: no sink is deleted then.
  virtual void logMessage(const char* message) = 0;

  virtual ~LogSink();
};

// Inserts each line into a stream, as it is: no line end, no flush.
class StreamLogSink : public LogSink {
 public:
  // `stream` stays the caller's and must outlive the sink.
  explicit StreamLogSink(std::ostream* stream);

  // A null message only sets the stream's bad state.
  void logMessage(const char* message) override;

  ~StreamLogSink() override;

  std::ostream* stream;
};

// Appends each line to a file and flushes it, so that the file is complete if the process dies.
class FileLogSink : public StreamLogSink {
 public:
  // Opens `path` for appending and creates it where it is missing. A file that cannot be opened is
  // no error: the sink then drops its lines.
  explicit FileLogSink(const char* path);

  void logMessage(const char* message) override;

  // Closes the file.
  ~FileLogSink() override;
};
