#pragma once

#include <atomic>
#include <cstdint>

#include "log/logger.h"

// How finished messages reach the sinks, be they made by a Logger or by a statement of the
// library's own.
namespace logging {

// Messages of a greater level are dropped.
inline int32_t Threshold() { return __atomic_load_n(&Logger::logBase.level, __ATOMIC_RELAXED); }

// Sinks are never taken away while the library is loaded, so that once one has been seen nobody
// needs to look again.
extern std::atomic<bool> sinkSeen;

// Takes the log's lock, and tells whether there is a sink. Any thread.
bool LookForSink();

// False when no sink is registered; the log's lock has then been taken and released once, as it is
// for a message that is delivered. Only the first message after a driver has appended a sink itself
// takes the lock twice: it is not held while the message is built. Any thread.
inline bool SinkRegistered() { return sinkSeen.load(std::memory_order_relaxed) || LookForSink(); }

// Hands the message to every sink in order, under the log's lock, unless its level is above the
// threshold. Throws nothing and may change errno. Any thread.
void Emit(int32_t level, const char* text) noexcept;

// True while a message is being handed to the sinks, by whatever thread.
bool DeliveryUnderWay();

// Registers one more sink for the log file, under the log's lock. Where memory is short none is
// registered: logging never fails its caller. Leaves errno alone. Any thread.
void AppendFileSink();

}  // namespace logging
