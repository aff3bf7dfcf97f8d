#pragma once

#include <pthread.h>

#include "oscl/types.h"

OSCL_BEGIN_C

/* A non-recursive mutex; the caller owns its storage. A thread that enters it twice deadlocks. A
 * success stores 0 in gLastError. If the mutex call fails, the function prints a line to Android's
 * log and returns as if it had succeeded: after a failed EnterCriticalSection the caller runs
 * without the lock. `section` must not be null. */
typedef pthread_mutex_t CRITICAL_SECTION;

void InitializeCriticalSection(CRITICAL_SECTION* section);

/* No thread may hold the section or wait for it. Do not enter, leave or delete it again before you
 * initialise it: glibc may tolerate that, but Android's libc aborts the process
 * ("pthread_mutex_lock called on a destroyed mutex"). */
void DeleteCriticalSection(CRITICAL_SECTION* section);

/* Blocks until the section is free. Any thread. */
void EnterCriticalSection(CRITICAL_SECTION* section);

/* Call it from the thread that entered the section. */
void LeaveCriticalSection(CRITICAL_SECTION* section);

OSCL_END_C
