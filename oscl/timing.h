#pragma once

#include "oscl/types.h"

OSCL_BEGIN_C

/* QueryPerformanceCounter stores the monotonic time in ticks of the clock's resolution;
 * QueryPerformanceFrequency stores the number of ticks per second (1,000,000,000 for a resolution
 * of 1 ns). Each call queries the resolution. Both return 1 and store 0 in gLastError. If the clock
 * fails, or its resolution is 0 or a second or more, they return 0 and change neither `*out` nor
 * gLastError. `out` must not be null. Any thread. */
BOOL QueryPerformanceFrequency(LARGE_INTEGER* out);
BOOL QueryPerformanceCounter(LARGE_INTEGER* out);
BOOL OSCL_QueryPerformanceFrequency(LARGE_INTEGER* out);
BOOL OSCL_QueryPerformanceCounter(LARGE_INTEGER* out);

/* Pause the calling thread for `duration` MICROseconds, despite their names: callers are built
 * against that unit. Store 0 in gLastError, unless a signal handler ends the pause early. Any
 * thread. */
void Sleep(uint32_t duration);
void OSCL_SleepMs(uint32_t duration);

OSCL_END_C
