#include "tests/api/interposed_session.h"

// This program defines members of the library's classes. The dynamic linker prefers them, so they
// can throw, keep a list of the open sessions, or choose another client.

#include "tests/support/standard_headers.h"
#include "transport/kalo_exception.h"

const char* test::connectFailure = nullptr;
bool test::disconnectFails = false;
// Never destroyed: the leak sanitizer must find the sessions that a test leaves open.
std::map<ClientSession*, const _GUID*>& test::connected =
    *new std::map<ClientSession*, const _GUID*>;

namespace {

// Commands with this id are routed to a client without a session.
constexpr unsigned kForeignCommand = 0xBADC;

template <typename Function>
Function* Original(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

void ClientSession::ConnectClient(const _GUID* guid) {
  const char* const detail = std::exchange(test::connectFailure, nullptr);
  if (detail != nullptr) throw KaloException(KALO_DLL_STATUS{0x4D}, detail);
  Original<void(ClientSession*, const _GUID*)>("_ZN13ClientSession13ConnectClientEPK5_GUID")(this,
                                                                                             guid);
  test::connected[this] = guid;
}

void ClientSession::DisconnectAllClients() {
  test::connected.erase(this);
  // The library throws its own std::runtime_error.
  if (std::exchange(test::disconnectFails, false)) IoControl(nullptr, 0, nullptr, 0);
  Original<void(ClientSession*)>("_ZN13ClientSession20DisconnectAllClientsEv")(this);
}

const _GUID* ClientSession::CommandIdToGuid(unsigned int command) {
  if (command == kForeignCommand) return &SAB_CLIENT_GUID;
  return Original<const _GUID*(unsigned)>("_ZN13ClientSession15CommandIdToGuidEj")(command);
}
