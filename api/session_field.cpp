#include "api/session_field.h"

#include "transport/session_registry.h"

SessionField kaloFieldA(&KaloDllState::kaloSessionA);
SessionField kaloFieldB(&KaloDllState::kaloSessionB);
SessionField fenuField(&KaloDllState::fenuSession);

ClientSession* SessionField::Live() const {
  ClientSession* session = Get();
  if (session == nullptr || session == destroyed_ || session_registry::IsDead(session)) {
    return nullptr;
  }
  return session;
}

void SessionField::Set(ClientSession* session) {
  destroyed_ = nullptr;
  gKaloDllState.*member_ = session;
}

void SessionField::NoteDestroyed(const ClientSession* session) {
  if (Get() == session) destroyed_ = session;
}
