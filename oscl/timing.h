#pragma once

#include "oscl/types.h"

OSCL_BEGIN_C

/* Ticks of the monotonic clock's resolution, and how many of them make a second (1,000,000,000
 * where the resolution is 1 ns). The resolution is asked for at every call. Both return 1 and store
 * 0 in gLastError; when the clock fails, or its resolution is a second or more, or 0 ns, they
 * return 0 and leave `*out` and gLastError alone. `out` must not be null. Any thread. */
BOOL QueryPerformanceFrequency(LARGE_INTEGER* out);
BOOL QueryPerformanceCounter(LARGE_INTEGER* out);
BOOL OSCL_QueryPerformanceFrequency(LARGE_INTEGER* out);
BOOL OSCL_QueryPerformanceCounter(LARGE_INTEGER* out);

/* Pauses the calling thread for `duration` MICROseconds, despite the names: callers are built
 * against that unit. A signal handler may end the pause early; gLastError then stays as it was,
 * else it becomes 0. Any thread. */
void Sleep(uint32_t duration);
void OSCL_SleepMs(uint32_t duration);

OSCL_END_C
