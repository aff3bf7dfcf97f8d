#include "api/session_field.h"

#include <exception>

#include "api/kalo_dll.h"
#include "log/log_line.h"
#include "transport/client_session.h"

SessionField kaloFieldA(&KaloDllState::kaloSessionA);
SessionField kaloFieldB(&KaloDllState::kaloSessionB);
SessionField fenuField(&KaloDllState::fenuSession);

void SessionField::Destroy(ClientSession* session) {
  for (SessionField* field : {&kaloFieldA, &kaloFieldB, &fenuField}) field->MarkIf(session);
  delete session;
}

KALO_DLL_STATUS SessionCleanup(void* handle) {
  auto* session = static_cast<ClientSession*>(handle);
  if (session == nullptr) return KALO_DLL_STATUS_SUCCESS;
  try {
    session->DisconnectAllClients();
  } catch (const std::exception& exception) {
    SessionField::Destroy(session);
    KALO_LOG(logging::kOrdinaryLevel) << exception.what();
    return KALO_DLL_STATUS_FAILURE;
  }
  SessionField::Destroy(session);
  return KALO_DLL_STATUS_SUCCESS;
}
