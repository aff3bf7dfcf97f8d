#pragma once

#include <cstdint>

#include "api/kalo_dll_state.h"

// One session pointer of the exported state. The state keeps the address of a session after it has
// been destroyed, and another session may take the address; which session the library stored stands
// here, beside the state. A pointer that other code writes into the state is used as it stands. As
// unlocked as the state itself.
class SessionField {
 public:
  constexpr explicit SessionField(ClientSession* KaloDllState::*member) : member_(member) {}

  // The pointer as it stands.
  ClientSession* Get() const { return gKaloDllState.*member_; }

  // The pointer, or null when its session has been destroyed.
  ClientSession* Live() const;

  void Set(ClientSession* session);

 private:
  ClientSession* KaloDllState::*member_;
  const ClientSession* stored_ = nullptr;
  uint64_t serial_ = 0;
};

extern SessionField kaloFieldA;
extern SessionField kaloFieldB;
extern SessionField fenuField;
