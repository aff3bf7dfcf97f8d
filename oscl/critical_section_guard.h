#pragma once

#include "oscl/critical_section.h"

namespace oscl {

// EnterCriticalSection, and whether the section was entered.
bool EnteredCriticalSection(CRITICAL_SECTION* section);

// Holds a critical section for a scope. One that could not be entered is not left either: it may be
// another thread's.
class CriticalSectionGuard {
 public:
  explicit CriticalSectionGuard(CRITICAL_SECTION& section)
      : section_(section), entered_(EnteredCriticalSection(&section)) {}
  ~CriticalSectionGuard() {
    if (entered_) LeaveCriticalSection(&section_);
  }
  CriticalSectionGuard(const CriticalSectionGuard&) = delete;
  CriticalSectionGuard& operator=(const CriticalSectionGuard&) = delete;

 private:
  CRITICAL_SECTION& section_;
  const bool entered_;
};

}  // namespace oscl
