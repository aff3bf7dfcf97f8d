#include "api/session_field.h"

#include <exception>
#include <memory>

#include "api/kalo_dll.h"
#include "log/log_line.h"
#include "transport/client_session.h"
#include "transport/last_destroyed.h"

using transport::lastDestroyedFenu;
using transport::lastDestroyedKalo;

SessionField kaloFieldA(&KaloDllState::kaloSessionA);
SessionField kaloFieldB(&KaloDllState::kaloSessionB);
SessionField fenuField(&KaloDllState::fenuSession);

namespace {

// Deletes a session that did not connect. No driver has its address, except as the address of the
// session that the library destroyed last. The constructor has cleared that address.
struct Discard {
  void operator()(ClientSession* session) const {
    for (transport::LastDestroyed* last : {&lastDestroyedKalo, &lastDestroyedFenu}) {
      const ClientSession* cleared = nullptr;
      last->compare_exchange_strong(cleared, session);
    }
    delete session;
  }
};

}  // namespace

ClientSession* OpenSession(const _GUID* client) {
  std::unique_ptr<ClientSession, Discard> session(new ClientSession);
  session->ConnectClient(client);
  return session.release();
}

void DestroySession(ClientSession* session, Sides sides) {
  if ((sides & kKaloSide) != 0) {
    kaloFieldA.MarkIf(session);
    kaloFieldB.MarkIf(session);
    lastDestroyedKalo = session;
  }
  if ((sides & kFenuSide) != 0) {
    fenuField.MarkIf(session);
    lastDestroyedFenu = session;
  }
  delete session;
}

KALO_DLL_STATUS CloseSession(ClientSession* session, Sides sides) {
  if (session == nullptr || ((sides & kKaloSide) != 0 && session == lastDestroyedKalo) ||
      ((sides & kFenuSide) != 0 && session == lastDestroyedFenu)) {
    return KALO_DLL_STATUS_SUCCESS;
  }
  try {
    session->DisconnectAllClients();
  } catch (const std::exception& exception) {
    DestroySession(session, sides);
    KALO_LOG_AS(logging::kOrdinaryLevel, "SessionCleanup") << exception.what();
    return KALO_DLL_STATUS_FAILURE;
  }
  DestroySession(session, sides);
  return KALO_DLL_STATUS_SUCCESS;
}

KALO_DLL_STATUS SessionCleanup(void* handle) {
  return CloseSession(static_cast<ClientSession*>(handle), kBothSides);
}
