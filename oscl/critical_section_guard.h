#pragma once

#include "oscl/critical_section.h"
#include "oscl/last_error.h"

namespace oscl {

// Prints a failure to the debug log and does not report it to the caller. Keeps errno.
void ReportLockFailure(const char* failure);

// True for a success.
inline bool ReportLockCall(int result, const char* failure) {
  if (result != 0) {
    ReportLockFailure(failure);
    return false;
  }
  SetLastErrorCode(OSCL_ERROR_SUCCESS);
  return true;
}

// Do what EnterCriticalSection and LeaveCriticalSection do, inlined for the library's own calls.
inline bool Enter(CRITICAL_SECTION& section) {
  return ReportLockCall(pthread_mutex_lock(&section), "can't lock the critical section\n");
}
inline void Leave(CRITICAL_SECTION& section) {
  ReportLockCall(pthread_mutex_unlock(&section), "can't unlock the critical section\n");
}

// Holds a critical section for a scope.
class CriticalSectionGuard {
 public:
  explicit CriticalSectionGuard(CRITICAL_SECTION& section)
      : section_(section), entered_(Enter(section)) {}
  // Contract: leaves the section even if entering it failed. Each failure is printed on its own.
  ~CriticalSectionGuard() { Leave(section_); }

  bool Entered() const { return entered_; }

  CriticalSectionGuard(const CriticalSectionGuard&) = delete;
  CriticalSectionGuard& operator=(const CriticalSectionGuard&) = delete;

 private:
  CRITICAL_SECTION& section_;
  const bool entered_;
};

}  // namespace oscl
