#pragma once

#include "oscl/critical_section.h"

namespace oscl {

// Holds a critical section for a scope.
class CriticalSectionGuard {
 public:
  explicit CriticalSectionGuard(CRITICAL_SECTION& section) : section_(section) {
    EnterCriticalSection(&section_);
  }
  // Contract: leaves the section whatever became of entering it; each failure prints its line.
  ~CriticalSectionGuard() { LeaveCriticalSection(&section_); }
  CriticalSectionGuard(const CriticalSectionGuard&) = delete;
  CriticalSectionGuard& operator=(const CriticalSectionGuard&) = delete;

 private:
  CRITICAL_SECTION& section_;
};

}  // namespace oscl
