#pragma once

#include <cstdint>
#include <ostream>

#include "log/logger.h"
#include "oscl/errno_keeper.h"

// The library's own log statements:
//
//   KALO_LOG(kTraceLevel) << "READ call is successful.";
//
// writes "<function>:<line>: READ call is successful." A statement that nobody will see costs one
// comparison and evaluates nothing behind it. It is one expression, safe in an unbraced `if`, and
// leaves errno alone.

namespace logging {

constexpr int32_t kOrdinaryLevel = 0;
constexpr int32_t kTraceLevel = 100;

// False when no sink is registered; the log's lock is then taken and released once, as it is for a
// message that is delivered.
bool SinkRegistered();

// Tells that a sink has been registered, so that no message has to look. Any thread.
void NoteSink();

inline bool Wanted(int32_t level) {
  return level <= __atomic_load_n(&Logger::logBase.level, __ATOMIC_RELAXED) && SinkRegistered();
}

// One message with its lead-in of function and tag.
class LogLine {
 public:
  LogLine(int32_t level, const char* function, int tag);

  std::ostream& stream() { return logger_; }

 private:
  // First, so that errno is put back after the message has been emitted.
  oscl::ErrnoKeeper keeper_;
  Logger logger_;
};

// Gives both arms of a log statement the type void; binds looser than <<.
struct Discard {
  void operator&(const std::ostream&) const {}
};

}  // namespace logging

#define KALO_LOG_FULL(level, function, tag)     \
  !::logging::Wanted(level) ? static_cast<void>(0) \
                            : ::logging::Discard() & \
                                  ::logging::LogLine(level, function, tag).stream()

// Tagged with the line of the statement.
#define KALO_LOG(level) KALO_LOG_FULL(level, __func__, __LINE__)
// Tagged with a fixed number.
#define KALO_LOG_TAGGED(level, tag) KALO_LOG_FULL(level, __func__, tag)
// On behalf of another function.
#define KALO_LOG_AS(level, function) KALO_LOG_FULL(level, function, __LINE__)
