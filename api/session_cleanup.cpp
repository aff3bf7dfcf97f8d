#include <exception>

#include "api/kalo_dll.h"
#include "api/session_field.h"
#include "log/log_line.h"
#include "transport/client_session.h"
#include "transport/session_registry.h"

namespace {

// Whichever field holds the address remembers that this session is gone: a handle may be given back
// to the cleanup of another client, and a new session may then take the address.
void Destroy(ClientSession* session) {
  for (SessionField* field : {&kaloFieldA, &kaloFieldB, &fenuField}) field->NoteDestroyed(session);
  delete session;
}

}  // namespace

KALO_DLL_STATUS SessionCleanup(void* handle) {
  auto* session = static_cast<ClientSession*>(handle);
  if (session == nullptr || session_registry::IsDead(session)) return KALO_DLL_STATUS_SUCCESS;
  try {
    session->DisconnectAllClients();
  } catch (const std::exception& exception) {
    Destroy(session);
    KALO_LOG(logging::kOrdinaryLevel) << exception.what();
    return KALO_DLL_STATUS_FAILURE;
  }
  Destroy(session);
  return KALO_DLL_STATUS_SUCCESS;
}
