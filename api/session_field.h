#pragma once

#include "api/kalo_dll_state.h"
#include "oscl/guid.h"
#include "transport/kalo_status.h"

// One session pointer of the exported state. The state keeps the address of a session after the
// library has destroyed it; a hidden mark distinguishes such an address from an open session. An
// address that other code writes into the state counts as an open session. There is no lock;
// accesses are atomic, because a driver may call SessionCleanup during the calls of either side.
class SessionField {
 public:
  constexpr explicit SessionField(ClientSession* KaloDllState::*member) : member_(member) {}

  // Returns the pointer, even if its session was destroyed.
  ClientSession* Get() const {
    return __atomic_load_n(&(gKaloDllState.*member_), __ATOMIC_RELAXED);
  }

  // Returns the pointer, or null if the library destroyed its session.
  ClientSession* Live() const {
    ClientSession* const session = Get();
    return session == __atomic_load_n(&destroyed_, __ATOMIC_RELAXED) ? nullptr : session;
  }

  // Stores a session that the library created, or null.
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
  // The address in the field when the library destroyed the session.
  ClientSession* destroyed_ = nullptr;
};

extern SessionField kaloFieldA;
extern SessionField kaloFieldB;
extern SessionField fenuField;

// The two sides of the library. An entry point of one side never touches a session of the other,
// unless the driver passes it to FenuCleanup3.
enum Sides { kKaloSide = 1, kFenuSide = 2, kBothSides = kKaloSide | kFenuSide };

// Returns a new session with a connection to a client, owned by the caller. Throws std::bad_alloc
// and whatever ClientSession::ConnectClient throws. Takes no lock.
ClientSession* OpenSession(const _GUID* client);

// Deletes a session and marks the fields of `sides` that hold its address.
void DestroySession(ClientSession* session, Sides sides);

// Closes and destroys a session. Returns 0, or 1 if closing fails. Does nothing for a null session,
// and for the session that the library destroyed last on one of `sides`.
KALO_DLL_STATUS CloseSession(ClientSession* session, Sides sides);
