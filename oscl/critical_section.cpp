#include "oscl/critical_section.h"

#include "oscl/android_log.h"
#include "oscl/last_error.h"

namespace {

// A failure is printed in the debug log only; the caller is never told.
void Report(int result, const char* failure) {
  if (result == 0) {
    oscl::SetLastErrorCode(OSCL_ERROR_SUCCESS);
  } else {
    oscl::AndroidLog()(oscl::kAndroidLogDebug, nullptr, failure);
  }
}

}  // namespace

void InitializeCriticalSection(CRITICAL_SECTION* section) {
  if (pthread_mutex_init(section, nullptr) == 0) oscl::SetLastErrorCode(OSCL_ERROR_SUCCESS);
}

void DeleteCriticalSection(CRITICAL_SECTION* section) {
  Report(pthread_mutex_destroy(section), "can't destroy the critical section\n");
}

void EnterCriticalSection(CRITICAL_SECTION* section) {
  Report(pthread_mutex_lock(section), "can't lock the critical section\n");
}

void LeaveCriticalSection(CRITICAL_SECTION* section) {
  Report(pthread_mutex_unlock(section), "can't unlock the critical section\n");
}
