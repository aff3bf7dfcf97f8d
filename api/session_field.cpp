#include "api/session_field.h"

#include "transport/session_registry.h"

SessionField kaloFieldA(&KaloDllState::kaloSessionA);
SessionField kaloFieldB(&KaloDllState::kaloSessionB);
SessionField fenuField(&KaloDllState::fenuSession);

ClientSession* SessionField::Live() const {
  ClientSession* session = Get();
  if (session == nullptr) return nullptr;
  const bool destroyed = session == stored_ ? session_registry::IsGone(session, serial_)
                                            : session_registry::IsDead(session);
  return destroyed ? nullptr : session;
}

void SessionField::Set(ClientSession* session) {
  stored_ = session;
  serial_ = session_registry::Adopt(session);
  gKaloDllState.*member_ = session;
}
