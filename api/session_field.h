#pragma once

#include "api/kalo_dll_state.h"

// One session pointer of the exported state. The state keeps the address of a session after the
// library has destroyed it; a hidden mark beside the state tells such an address from a live one.
// An address that other code wrote into the state counts as live. As unlocked as the state itself.
class SessionField {
 public:
  constexpr explicit SessionField(ClientSession* KaloDllState::*member) : member_(member) {}

  // The pointer as it stands.
  ClientSession* Get() const { return gKaloDllState.*member_; }

  // The pointer, or null when the library has destroyed its session.
  ClientSession* Live() const { return Get() == destroyed_ ? nullptr : Get(); }

  // Stores a session that the library has made, or null.
  void Set(ClientSession* session) {
    destroyed_ = nullptr;
    gKaloDllState.*member_ = session;
  }

  // Deletes a session and marks every field that holds its address.
  static void Destroy(ClientSession* session);

 private:
  void MarkIf(const ClientSession* session) {
    if (Get() == session) destroyed_ = session;
  }

  ClientSession* KaloDllState::*member_;
  // The address that the field held when the library destroyed the session there.
  const ClientSession* destroyed_ = nullptr;
};

extern SessionField kaloFieldA;
extern SessionField kaloFieldB;
extern SessionField fenuField;
