#pragma once

/* For C++ only. */
#ifndef __cplusplus
#error "log/logger.h is for C++ only; C drivers include api/kalo_dll.h and api/kalo_dll_state.h"
#endif

#include <cstddef>
#include <cstdint>
#include <locale>
#include <sstream>
#include <vector>

#include "log/log_sink.h"
#include "oscl/critical_section.h"

// One log message. Insert text into it; the destructor delivers the text unchanged to every
// registered sink as one line. Any thread may create one; each has its own stream. Delivery never
// throws and never changes errno. Do not change the locale: the locales of a program with another
// C++ runtime do not work here.
class Logger : public std::basic_stringstream<char> {
 public:
  // The state that all messages share. The only object is logBase, which lives from load to unload.
  class LogBase {
   public:
    LogBase();
    // Deletes the sinks in order, without waiting. Deletes none while a message is being delivered.
    ~LogBase();
    LogBase(const LogBase&) = delete;
    LogBase& operator=(const LogBase&) = delete;

    // The threshold: messages above it are dropped. Every KaloInit3 sets it to 0.
    int32_t level;
    // Owned, in order of registration; null entries are skipped. A driver may append a sink only
    // while no other thread logs or initialises, or while it holds `lock`. The appending code may
    // allocate the vector's storage, which the library frees, so both need the same operator new.
    std::vector<LogSink*> sinks;
    // While true (the default), lines have no prefix with process id and tick. Change this and
    // `level` only while no other thread logs.
    bool plainOutput;
    // Serialises deliveries.
    CRITICAL_SECTION lock;
  };

  // Creates a message of level 0.
  Logger();
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  // Delivers the message unless its level is above the threshold.
  ~Logger() override;

  // Returns the time in ticks of the monotonic clock's resolution, or 0 if the clock cannot be
  // read. Any thread.
  static int64_t GetHighResolutionCounterTick();

  static LogBase logBase;

  // 0 for ordinary messages, 100 for detailed ones. Set it before you insert text.
  int32_t level;
};

// The order of the members is part of the binary interface. The alignment of libc's mutex decides
// the position of the lock.
static_assert(sizeof(Logger::LogBase) == 80 && offsetof(Logger::LogBase, sinks) == 8 &&
              offsetof(Logger::LogBase, plainOutput) == 32 &&
              offsetof(Logger::LogBase, lock) == 32 + alignof(CRITICAL_SECTION));

#ifdef _LIBCPP_VERSION
namespace logging {

// A libc++ numbers the facets of a locale when they are first requested, and a Logger's locale has
// them in the order of the first locale created. A driver with its own libc++ must therefore create
// a locale before it inserts anything. `firstLocale` creates it when the driver is loaded. It is
// hidden, so each library with its own libc++ has one.
__attribute__((visibility("hidden"))) inline const std::locale& firstLocale =
    std::locale::classic();

}  // namespace logging
#endif
