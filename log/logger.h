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

// One log message: text is inserted into it, and its destructor hands the text to every registered
// sink as one line, exactly as inserted. Any thread may make one; each owns its stream. Emitting
// never throws and never changes errno. Its locale must stay as it is: the locales of a program
// with a C++ runtime of its own are not the library's.
class Logger : public std::basic_stringstream<char> {
 public:
  // What all messages share. There is one, logBase, from library load to unload.
  class LogBase {
   public:
    LogBase();
    // Deletes the sinks in order and waits for nobody; while a message is being delivered to them
    // it deletes none.
    ~LogBase();
    LogBase(const LogBase&) = delete;
    LogBase& operator=(const LogBase&) = delete;

    // Threshold: messages of a greater level are dropped. Every KaloInit3 sets it to 0.
    int32_t level;
    // In order of registration; owned; a null entry is passed over. Other code appends to it only
    // while no other thread logs or initialises, or while it holds `lock`. Whoever appends may
    // allocate the vector's storage, which the library frees: both need the same operator new.
    std::vector<LogSink*> sinks;
    // While true (the default) a line has no prefix of process id and tick. Change it, and `level`,
    // only while no other thread logs.
    bool plainOutput;
    // Serialises delivery to the sinks.
    CRITICAL_SECTION lock;
  };

  // A message of level 0.
  Logger();
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  // Emits the message unless its level is above the threshold.
  ~Logger() override;

  // Ticks of the monotonic clock's resolution, or 0 when the clock cannot be read. Any thread.
  static int64_t GetHighResolutionCounterTick();

  static LogBase logBase;

  // 0 is ordinary, 100 detailed trace. Set it before inserting text.
  int32_t level;
};

// The order is the interface; where the lock stands, the alignment of libc's mutex decides.
static_assert(sizeof(Logger::LogBase) == 80 && offsetof(Logger::LogBase, sinks) == 8 &&
              offsetof(Logger::LogBase, plainOutput) == 32 &&
              offsetof(Logger::LogBase, lock) == 32 + alignof(CRITICAL_SECTION));

#ifdef _LIBCPP_VERSION
namespace logging {

// A libc++ numbers the parts of a locale as they are first asked for, and a Logger's locale has
// them in the order of the first locale made. A driver with a libc++ of its own must therefore make
// its first locale before it inserts anything, and does so here, at its start. Hidden, so that each
// library of a process that carries a libc++ has one of these.
__attribute__((visibility("hidden"))) inline const std::locale& firstLocale =
    std::locale::classic();

}  // namespace logging
#endif
