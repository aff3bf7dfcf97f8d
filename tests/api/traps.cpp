#include "tests/api/traps.h"

// This program takes over members of the library's classes, as the dynamic linker lets it, to make
// them throw or choose another client.

#include <dlfcn.h>

#include "tests/api/model.h"
#include "transport/kalo_exception.h"

test::Trap test::trap;

namespace {

void Spring(test::Point point) {
  using test::Trap;
  if (!test::trap.Springs(point)) return;
  if (test::trap.kind == Trap::kRefuse) throw KaloException(KALO_DLL_STATUS{0x4D}, "refused");
  // The library's own std::runtime_error.
  if (test::trap.kind == Trap::kBreak) ClientSession().IoControl(nullptr, 0, nullptr, 0);
  throw 42;
}

template <typename Function>
Function* Original(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

void ClientSession::ConnectClient(const _GUID* guid) {
  Spring(test::Point::kConnectClient);
  Original<void(ClientSession*, const _GUID*)>("_ZN13ClientSession13ConnectClientEPK5_GUID")(this,
                                                                                             guid);
}

void ClientSession::DisconnectAllClients() {
  Spring(test::Point::kDisconnectAllClients);
  Original<void(ClientSession*)>("_ZN13ClientSession20DisconnectAllClientsEv")(this);
}

void ClientSession::IoMessage(unsigned char* in, unsigned int inLength, unsigned char* out,
                              unsigned int outLength, unsigned char* data, unsigned int* length) {
  Spring(test::Point::kIoMessage);
  Original<void(ClientSession*, unsigned char*, unsigned, unsigned char*, unsigned, unsigned char*,
                unsigned*)>("_ZN13ClientSession9IoMessageEPhjS0_jS0_Pj")(this, in, inLength, out,
                                                                         outLength, data, length);
}

const _GUID* ClientSession::CommandIdToGuid(unsigned int command) {
  if (command == test::kForeignCommand) return &SAB_CLIENT_GUID;
  return Original<const _GUID*(unsigned)>("_ZN13ClientSession15CommandIdToGuidEj")(command);
}
