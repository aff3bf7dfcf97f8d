#pragma once

#include "api/kalo_dll_state.h"
#include "transport/kalo_status.h"

// One session pointer of the exported state. The state keeps the address of a session after the
// library has destroyed it; a hidden mark beside the state tells such an address from a live one.
// An address that other code wrote into the state counts as live. As unlocked as the state itself;
// the accesses are atomic for a driver that calls SessionCleanup beside either side's calls.
class SessionField {
 public:
  constexpr explicit SessionField(ClientSession* KaloDllState::*member) : member_(member) {}

  // The pointer as it stands.
  ClientSession* Get() const {
    return __atomic_load_n(&(gKaloDllState.*member_), __ATOMIC_RELAXED);
  }

  // The pointer, or null when the library has destroyed its session.
  ClientSession* Live() const {
    ClientSession* const session = Get();
    return session == __atomic_load_n(&destroyed_, __ATOMIC_RELAXED) ? nullptr : session;
  }

  // Stores a session that the library has made, or null.
  void Set(ClientSession* session) {
    __atomic_store_n(&destroyed_, nullptr, __ATOMIC_RELAXED);
    __atomic_store_n(&(gKaloDllState.*member_), session, __ATOMIC_RELAXED);
  }

  // Marks the field if it holds the address of a session that is about to be destroyed.
  void MarkIf(ClientSession* session) {
    if (Get() == session) __atomic_store_n(&destroyed_, session, __ATOMIC_RELAXED);
  }

 private:
  ClientSession* KaloDllState::*member_;
  // The address that the field held when the library destroyed the session there.
  ClientSession* destroyed_ = nullptr;
};

extern SessionField kaloFieldA;
extern SessionField kaloFieldB;
extern SessionField fenuField;

// The two sides of the library. An entry point of one side touches no session of the other, unless
// the driver gives FenuCleanup3 another handle than that of FENU's session.
enum Sides { kKaloSide = 1, kFenuSide = 2, kBothSides = kKaloSide | kFenuSide };

// Deletes a session and marks the fields of `sides` that hold its address.
void DestroySession(ClientSession* session, Sides sides);

// Closes and destroys a session: 0, or 1 when closing failed. Leaves a null session alone, and the
// one that the library destroyed last on one of `sides`.
KALO_DLL_STATUS CloseSession(ClientSession* session, Sides sides);
