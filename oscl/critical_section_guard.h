#pragma once

#include "oscl/android_log.h"
#include "oscl/critical_section.h"
#include "oscl/last_error.h"

namespace oscl {

// A failure is printed in the debug log only; the caller is never told.
inline void ReportLockCall(int result, const char* failure) {
  if (result == 0) {
    SetLastErrorCode(OSCL_ERROR_SUCCESS);
  } else {
    AndroidLog()(kAndroidLogDebug, nullptr, failure);
  }
}

// What EnterCriticalSection and LeaveCriticalSection do, for the library's own use.
inline void Enter(CRITICAL_SECTION& section) {
  ReportLockCall(pthread_mutex_lock(&section), "can't lock the critical section\n");
}
inline void Leave(CRITICAL_SECTION& section) {
  ReportLockCall(pthread_mutex_unlock(&section), "can't unlock the critical section\n");
}

// Holds a critical section for a scope.
class CriticalSectionGuard {
 public:
  explicit CriticalSectionGuard(CRITICAL_SECTION& section) : section_(section) { Enter(section_); }
  // Contract: leaves the section whatever became of entering it; each failure prints its line.
  ~CriticalSectionGuard() { Leave(section_); }
  CriticalSectionGuard(const CriticalSectionGuard&) = delete;
  CriticalSectionGuard& operator=(const CriticalSectionGuard&) = delete;

 private:
  CRITICAL_SECTION& section_;
};

}  // namespace oscl
