#pragma once

#include "api/kalo_dll_state.h"

// One session pointer of the exported state. The state keeps the address of a session after it has
// been destroyed; what must be remembered of that stands here, beside the state. A pointer that
// other code writes into the state is used as it stands. As unlocked as the state itself.
class SessionField {
 public:
  constexpr explicit SessionField(ClientSession* KaloDllState::*member) : member_(member) {}

  // The pointer as it stands.
  ClientSession* Get() const { return gKaloDllState.*member_; }

  // The pointer, or null when it is the address of a session that has been destroyed, even if
  // another session has taken that address since.
  ClientSession* Live() const;

  void Set(ClientSession* session);

  // Tells that `session` has been destroyed; the pointer itself stays.
  void NoteDestroyed(const ClientSession* session);

 private:
  ClientSession* KaloDllState::*member_;
  const ClientSession* destroyed_ = nullptr;
};

extern SessionField kaloFieldA;
extern SessionField kaloFieldB;
extern SessionField fenuField;
