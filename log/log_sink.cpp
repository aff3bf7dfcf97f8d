#include "log/log_sink.h"

#include <fstream>
#include <memory>

namespace {

std::ostream* OpenForAppending(const char* path) {
  auto file = std::make_unique<std::ofstream>();
  if (path != nullptr) {
    file->open(path, std::ios_base::out | std::ios_base::app);
  } else {
    file->setstate(std::ios_base::failbit);
  }
  return file.release();
}

}  // namespace

LogSink::LogSink() = default;

LogSink::~LogSink() = default;

StreamLogSink::StreamLogSink(std::ostream* target) : stream(target) {}

StreamLogSink::~StreamLogSink() = default;

void StreamLogSink::logMessage(const char* message) {
  // Standard libraries treat a null text differently, so never insert one.
  if (message != nullptr) {
    *stream << message;
  } else {
    stream->setstate(std::ios_base::badbit);
  }
}

FileLogSink::FileLogSink(const char* path) : StreamLogSink(OpenForAppending(path)) {}

FileLogSink::~FileLogSink() { delete stream; }

void FileLogSink::logMessage(const char* message) {
  StreamLogSink::logMessage(message);
  stream->flush();
}
