#include "oscl/critical_section.h"

#include "oscl/android_log.h"
#include "oscl/critical_section_guard.h"
#include "oscl/last_error.h"

namespace {

// A failure is told to the debug log only; whoever calls these primitives is never told.
bool Settle(int result, const char* failure) {
  if (result == 0) {
    oscl::SetLastErrorCode(OSCL_ERROR_SUCCESS);
  } else {
    oscl::AndroidLog()(oscl::kAndroidLogDebug, nullptr, failure);
  }
  return result == 0;
}

}  // namespace

void InitializeCriticalSection(CRITICAL_SECTION* section) {
  if (pthread_mutex_init(section, nullptr) == 0) oscl::SetLastErrorCode(OSCL_ERROR_SUCCESS);
}

void DeleteCriticalSection(CRITICAL_SECTION* section) {
  Settle(pthread_mutex_destroy(section), "can't destroy the critical section\n");
}

bool oscl::EnteredCriticalSection(CRITICAL_SECTION* section) {
  return Settle(pthread_mutex_lock(section), "can't lock the critical section\n");
}

void EnterCriticalSection(CRITICAL_SECTION* section) { oscl::EnteredCriticalSection(section); }

void LeaveCriticalSection(CRITICAL_SECTION* section) {
  Settle(pthread_mutex_unlock(section), "can't unlock the critical section\n");
}
