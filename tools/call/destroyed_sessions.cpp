#include "tools/call/destroyed_sessions.h"

#include "api/kalo_dll_state.h"

namespace kaloctl {

void DestroyedSessions::AfterCall(const EntryPoint& entryPoint, const void* handle) {
  const Snapshot before = last_;
  Update();
  Compare(before.countA, last_.countA, before.sessionA, last_.sessionA);
  Compare(before.countB, last_.countB, before.sessionB, last_.sessionB);
  if (std::string_view(entryPoint.name) == "FenuCleanup3") {
    // It destroys the session that it was given, whichever that is.
    if (before.countFenu == 1 && handle != nullptr) destroyed_.insert(handle);
  } else if (before.sessionFenu != nullptr && last_.sessionFenu == nullptr) {
    destroyed_.insert(before.sessionFenu);
  } else if (before.fenuVersion == 0 && last_.fenuVersion != 0) {
    destroyed_.erase(last_.sessionFenu);
  }
}

void DestroyedSessions::Update() {
  const KaloDllState& state = gKaloDllState;
  last_ = {state.kaloRefCountA, state.kaloRefCountB, state.fenuRefCount, state.fenuInterfaceVersion,
           state.kaloSessionA,  state.kaloSessionB,  state.fenuSession};
}

void DestroyedSessions::Compare(uint32_t countBefore, uint32_t countAfter, const void* before,
                                const void* after) {
  if (countBefore != 0 && countAfter == 0) destroyed_.insert(before);
  if (countBefore == 0 && countAfter != 0) destroyed_.erase(after);
}

}  // namespace kaloctl
