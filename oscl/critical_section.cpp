#include "oscl/critical_section.h"

#include "oscl/android_log.h"
#include "oscl/critical_section_guard.h"
#include "oscl/errno_keeper.h"

void oscl::ReportLockFailure(const char* failure) {
  const ErrnoKeeper keeper;
  AndroidLog()(kAndroidLogDebug, nullptr, failure);
}

void InitializeCriticalSection(CRITICAL_SECTION* section) {
  if (pthread_mutex_init(section, nullptr) == 0) oscl::SetLastErrorCode(OSCL_ERROR_SUCCESS);
}

void DeleteCriticalSection(CRITICAL_SECTION* section) {
  oscl::ReportLockCall(pthread_mutex_destroy(section), "can't destroy the critical section\n");
}

void EnterCriticalSection(CRITICAL_SECTION* section) { oscl::Enter(*section); }

void LeaveCriticalSection(CRITICAL_SECTION* section) { oscl::Leave(*section); }
