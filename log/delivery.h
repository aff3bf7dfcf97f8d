#pragma once

#include <atomic>
#include <cstdint>

#include "log/logger.h"

// Delivers finished messages to the sinks, for Logger and for the library's own statements.
namespace logging {

// Drops messages above this level.
inline int32_t Threshold() { return __atomic_load_n(&Logger::logBase.level, __ATOMIC_RELAXED); }

// Sinks are never removed while the library is loaded, so a thread that has seen one need not look
// again.
extern std::atomic<bool> sinkSeen;

// Takes the log's lock and returns true if there is a sink. Any thread.
bool LookForSink();

// Returns false if no sink is registered, after taking and releasing the log's lock once, as for a
// delivered message. If a driver has appended a sink, the next message takes the lock twice,
// because the lock is not held while the message is built. Any thread.
inline bool SinkRegistered() { return sinkSeen.load(std::memory_order_relaxed) || LookForSink(); }

// Delivers the message to every sink in order, under the log's lock, unless its level is above the
// threshold. Never throws; may change errno. Any thread.
void Emit(int32_t level, const char* text) noexcept;

// Returns true while any thread delivers a message.
bool DeliveryUnderWay();

// Adds a sink for the log file, under the log's lock. Adds none if memory is exhausted: logging
// never fails its caller. Does not change errno. Any thread.
void AppendFileSink();

}  // namespace logging
