#include <exception>

#include "api/kalo_dll.h"
#include "log/log_line.h"
#include "transport/client_session.h"
#include "transport/session_registry.h"

KALO_DLL_STATUS SessionCleanup(void* handle) {
  auto* session = static_cast<ClientSession*>(handle);
  if (session == nullptr || session_registry::IsDead(session)) return KALO_DLL_STATUS_SUCCESS;
  try {
    session->DisconnectAllClients();
  } catch (const std::exception& exception) {
    delete session;
    KALO_LOG(logging::kOrdinaryLevel) << exception.what();
    return KALO_DLL_STATUS_FAILURE;
  }
  delete session;
  return KALO_DLL_STATUS_SUCCESS;
}
