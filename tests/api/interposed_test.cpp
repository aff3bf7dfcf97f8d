// Failures that the device cannot bring about: this program takes over members of the library's
// classes, as the dynamic linker lets it, and makes them throw.

#include <dlfcn.h>

#include <functional>

#include "tests/support/library_test.h"
#include "transport/kalo_exception.h"

namespace {

std::function<void()> atConnect;
std::function<void()> atDisconnectAll;
std::function<void()> atExchange;
const _GUID* guidOfAnyCommand = nullptr;

template <typename Function>
Function Original(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

void ClientSession::ConnectClient(const _GUID* guid) {
  if (atConnect) atConnect();
  Original<void (*)(ClientSession*, const _GUID*)>("_ZN13ClientSession13ConnectClientEPK5_GUID")(
      this, guid);
}

void ClientSession::DisconnectAllClients() {
  if (atDisconnectAll) atDisconnectAll();
  Original<void (*)(ClientSession*)>("_ZN13ClientSession20DisconnectAllClientsEv")(this);
}

void ClientSession::IoMessage(unsigned char*, unsigned int, unsigned char*, unsigned int,
                              unsigned char*, unsigned int*) {
  if (atExchange) atExchange();
}

const _GUID* ClientSession::CommandIdToGuid(unsigned int) {
  return guidOfAnyCommand != nullptr ? guidOfAnyCommand : &KALO_CLIENT_GUID;
}

namespace test {
namespace {

using testing::ElementsAre;

void Refuse() { throw KaloException(static_cast<KALO_DLL_STATUS>(0x4D), "refused"); }
// The library's own std::runtime_error.
void Break() { ClientSession().IoControl(nullptr, 0, nullptr, 0); }
void Escape() { throw 42; }

class Interposed : public LibraryTest {
 protected:
  void* InitA() {
    KALO_STATE_INIT_PARAMS params{0x30000, 0};
    KaloStateInit(&params);
    void* handle = nullptr;
    EXPECT_EQ(KaloInit3(&handle), 0u);
    return handle;
  }
  // The last lines of the log.
  Lines Last(size_t count) {
    const Lines lines = TakeTaggedLog();
    return Lines(lines.end() - static_cast<long>(std::min(count, lines.size())), lines.end());
  }
  Lines LastUntagged(size_t count) {
    const Lines lines = TakeLog();
    return Lines(lines.end() - static_cast<long>(std::min(count, lines.size())), lines.end());
  }
};

TEST_F(Interposed, status_of_an_exception_is_returned_whatever_it_is) {
  const char* const text = "KALO Exception 0x4d refused";
  void* handle = nullptr;
  atConnect = Refuse;
  EXPECT_EQ(KaloInit3(&handle), 0x4Du);
  EXPECT_EQ(LastUntagged(2), Of("KaloInit3", "Call to KaloInit3() API failed.", text));
  EXPECT_EQ(state.kaloRefCountA, 0u);
  Trace();
  EXPECT_EQ(FenuInit3(&handle), 0x4Du);
  EXPECT_EQ(Last(2), List("FenuInit3:688: Call to FenuInit3() API failed.",
                          "FenuInit3:689: KALO Exception 0x4d refused"));
  EXPECT_EQ(state.apiErrorCode, 0x4Du);
  EXPECT_EQ(state.fenuRefCount + state.fenuInterfaceVersion, 0u);
  atConnect = nullptr;
  handle = InitA();
  atExchange = Refuse;
  Bytes message = Message(0x10);
  EXPECT_EQ(StartIo3(handle, message.data(), 32, message.data(), 32), 0x4Du);
  EXPECT_EQ(static_cast<ClientSession*>(handle)->lastErrorStatus, 0x4D);
}

TEST_F(Interposed, foreign_exceptions_pass_and_release_the_lock) {
  void* handle = nullptr;
  atConnect = Escape;
  const StateSnapshot before;
  EXPECT_THROW(KaloInit3(&handle), int);
  EXPECT_THROW(FenuInit3(&handle), int);
  EXPECT_THAT(before.Changed(), ElementsAre());
  atConnect = nullptr;
  handle = InitA();  // would wait for ever on a lock that is held
  atExchange = Escape;
  Bytes message = Message(0x10);
  EXPECT_THROW(StartIo(message.data(), 32, message.data(), 32), int);
  atDisconnectAll = Escape;
  EXPECT_THROW(KaloCleanup3(handle), int);
  EXPECT_EQ(engine.OpenDescriptors(), 1u);  // not freed
  EXPECT_EQ(state.apiErrorCode, 0u);
  delete static_cast<ClientSession*>(handle);
}

TEST_F(Interposed, client_without_a_session_is_not_supported) {
  void* const handle = InitA();
  guidOfAnyCommand = &ClientSession::SAB_CLIENT_GUID;
  Trace();
  Bytes message = Message(0x10);
  EXPECT_EQ(StartIo(message.data(), 32, message.data(), 32), 1u);
  EXPECT_EQ(Last(2), List("StartIoEx:1041: Call to FenuInit3() API failed.",
                          "StartIoEx:1042: Client GUID not supported"));
  EXPECT_STREQ(state.fenuErrorText, "Client GUID not supported");
  EXPECT_EQ(state.fenuErrorCode, 0xFFFFFFFF);
  KaloCleanup3(handle);
}

TEST_F(Interposed, failed_disconnection_destroys_the_session_all_the_same) {
  void* const handle = InitA();
  atDisconnectAll = Break;
  TakeTranscript();
  const StateSnapshot before;
  EXPECT_EQ(KaloCleanup3(handle), 1u);
  EXPECT_EQ(TakeTranscript(),
            Of("KaloCleanup3", "Executing call to KaloCleanup3() API...", "KALO DREM Ref Cnt A 1") +
                List("<close>", "SessionCleanup: IoControl() not implemented") +
                Of("KaloCleanup3", "KALO DREM Ref Cnt A 0", "KALO DREM Ref Cnt B 0",
                   "KALO DREM Ref Cnt B 0", "Call to KaloCleanup3() API failed."));
  EXPECT_THAT(before.Changed(), ElementsAre("kaloRefCountA"));
  Trace();
  void* fenu = nullptr;
  FenuInit3(&fenu);
  EXPECT_EQ(FenuCleanup3(fenu), 1u);
  EXPECT_EQ(Last(1), List("FenuCleanup3:742: Call to FenuCleanup3() API failed."));
  EXPECT_EQ(state.fenuInterfaceVersion, 0u);
  FenuCleanup();
  FenuInit();
  EXPECT_EQ(FenuCleanup(), 1u);
  EXPECT_EQ(Last(1), List("FenuCleanup:935: Call to FenuCleanup() API failed."));
  EXPECT_EQ(state.fenuSession, nullptr);
  EXPECT_EQ(engine.OpenDescriptors(), 0u);
}

TEST_F(Interposed, status_of_session_b_replaces_that_of_a) {
  const struct {
    bool withB, failA, failB;
    uint32_t status;
  } kCases[] = {{false, true, false, 1},
                {true, true, false, 0},
                {true, false, true, 1},
                {true, true, true, 1}};
  for (const auto& [withB, failA, failB, status] : kCases) {
    InitA();
    if (withB) InitA();
    int calls = 0;
    atDisconnectAll = [&calls, a = failA, b = failB] {
      if (++calls == 1 ? a : b) Break();
    };
    Trace();
    EXPECT_EQ(KaloCleanup(), status);
    EXPECT_EQ(
        Last(1),
        List(status == 0 ? "KaloCleanup:866: Call to KaloCleanup() API completed successfully."
                         : "KaloCleanup:870: Call to KaloCleanup() API failed."));
    EXPECT_EQ(state.kaloSessionA, nullptr);
    EXPECT_EQ(state.kaloSessionB, nullptr);
    EXPECT_EQ(engine.OpenDescriptors(), 0u);
  }
}

}  // namespace
}  // namespace test
