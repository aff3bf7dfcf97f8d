#pragma once

#include <set>

#include "tools/call/script.h"

namespace kaloctl {

// Knows which sessions the calls of a script have destroyed. The exported state keeps the addresses
// of destroyed sessions; the counts, before and after a call, tell.
class DestroyedSessions {
 public:
  DestroyedSessions() { Update(); }

  // To be called after each call with the handle that was passed, or null.
  void AfterCall(const EntryPoint& entryPoint, const void* handle);

  // True while the address held a session that is gone, and no new one has taken it.
  bool Contains(const void* session) const { return destroyed_.count(session) != 0; }

 private:
  // What the state held after the last call.
  struct Snapshot {
    uint32_t countA, countB, countFenu, fenuVersion;
    const void *sessionA, *sessionB, *sessionFenu;
  };

  void Update();
  void Compare(uint32_t countBefore, uint32_t countAfter, const void* before, const void* after);

  Snapshot last_;
  std::set<const void*> destroyed_;
};

}  // namespace kaloctl
