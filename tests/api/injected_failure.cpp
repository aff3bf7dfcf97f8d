#include "tests/api/injected_failure.h"

// This program defines members of the library's classes. The dynamic linker prefers them, so they
// can throw, or choose another client.

#include <dlfcn.h>

#include "transport/client_session.h"
#include "transport/kalo_exception.h"

test::InjectedFailure test::injected;

namespace {

// Commands with this id are routed to a client without a session.
constexpr unsigned kForeignCommand = 0xBADC;

void ThrowIfDue(test::Point point) {
  using test::InjectedFailure;
  if (!test::injected.IsDueAt(point)) return;
  if (test::injected.kind == InjectedFailure::kRefuse)
    throw KaloException(KALO_DLL_STATUS{0x4D}, test::injected.detail);
  // Makes the library throw its own std::runtime_error.
  if (test::injected.kind == InjectedFailure::kBreak)
    ClientSession().IoControl(nullptr, 0, nullptr, 0);
  throw 42;
}

template <typename Function>
Function* Original(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

void ClientSession::ConnectClient(const _GUID* guid) {
  ThrowIfDue(test::Point::kConnectClient);
  Original<void(ClientSession*, const _GUID*)>("_ZN13ClientSession13ConnectClientEPK5_GUID")(this,
                                                                                             guid);
}

void ClientSession::DisconnectAllClients() {
  ThrowIfDue(test::Point::kDisconnectAllClients);
  Original<void(ClientSession*)>("_ZN13ClientSession20DisconnectAllClientsEv")(this);
}

void ClientSession::IoMessage(unsigned char* in, unsigned int inLength, unsigned char* out,
                              unsigned int outLength, unsigned char* data, unsigned int* length) {
  ThrowIfDue(test::Point::kIoMessage);
  Original<void(ClientSession*, unsigned char*, unsigned, unsigned char*, unsigned, unsigned char*,
                unsigned*)>("_ZN13ClientSession9IoMessageEPhjS0_jS0_Pj")(this, in, inLength, out,
                                                                         outLength, data, length);
}

const _GUID* ClientSession::CommandIdToGuid(unsigned int command) {
  if (command == kForeignCommand) return &SAB_CLIENT_GUID;
  return Original<const _GUID*(unsigned)>("_ZN13ClientSession15CommandIdToGuidEj")(command);
}
