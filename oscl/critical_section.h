#pragma once

#include <pthread.h>

#include "oscl/types.h"

OSCL_BEGIN_C

/* A plain, non-recursive mutex; the caller owns its storage. Entering it again from the thread
 * that holds it deadlocks. A success stores 0 in gLastError. A failing mutex call is reported in
 * Android's log only, and the function returns as if nothing had happened: after a failed
 * EnterCriticalSection the caller runs without the lock. None may be null. */
typedef pthread_mutex_t CRITICAL_SECTION;

void InitializeCriticalSection(CRITICAL_SECTION* section);

/* No thread may hold or wait for the section. Until it is initialised again it must not be entered,
 * left or deleted: glibc may let that pass, while Android's libc ends the process
 * ("pthread_mutex_lock called on a destroyed mutex"). */
void DeleteCriticalSection(CRITICAL_SECTION* section);

/* Blocks until the section is free. Any thread. */
void EnterCriticalSection(CRITICAL_SECTION* section);

/* Only the thread that entered it. */
void LeaveCriticalSection(CRITICAL_SECTION* section);

OSCL_END_C
