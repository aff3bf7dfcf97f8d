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
  Interposed() { Trace(); }
  void* InitA() {
    KALO_STATE_INIT_PARAMS params{0x30000, 0};
    KaloStateInit(&params);
    void* handle = nullptr;
    EXPECT_EQ(KaloInit3(&handle), 0u);
    return handle;
  }
  // The last lines of the log, tags included for those that have one of their own.
  void ExpectLast(const Lines& expected) {
    const Lines raw = TakeRaw();
    ASSERT_GE(raw.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
      const std::string& line = raw[raw.size() - expected.size() + i];
      EXPECT_TRUE(line == expected[i] || WithoutTag(line) == expected[i]) << line;
    }
  }
  Bytes message_ = Message(0x10);
};

TEST_F(Interposed, status_of_an_exception_is_returned_whatever_it_is) {
  const std::string text = "KALO Exception 0x4d refused";
  void* handle = nullptr;
  atConnect = Refuse;
  EXPECT_EQ(KaloInit3(&handle), 0x4Du);
  ExpectLast(Of("KaloInit3", "Call to KaloInit3() API failed.", text));
  EXPECT_EQ(FenuInit3(&handle), 0x4Du);
  ExpectLast(List("FenuInit3:688: Call to FenuInit3() API failed.", "FenuInit3:689: " + text));
  EXPECT_EQ(state.apiErrorCode, 0x4Du);
  EXPECT_EQ(state.kaloRefCountA + state.fenuRefCount + state.fenuInterfaceVersion, 0u);
  atConnect = nullptr;
  handle = InitA();
  atExchange = Refuse;
  EXPECT_EQ(StartIo3(handle, message_.data(), 32, message_.data(), 32), 0x4Du);
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
  EXPECT_THROW(StartIo(message_.data(), 32, message_.data(), 32), int);
  atDisconnectAll = Escape;
  EXPECT_THROW(KaloCleanup3(handle), int);
  EXPECT_EQ(engine.OpenDescriptors(), 1u);  // not freed
  EXPECT_EQ(state.apiErrorCode, 0u);
  delete static_cast<ClientSession*>(handle);
}

TEST_F(Interposed, client_without_a_session_is_not_supported) {
  void* const handle = InitA();
  guidOfAnyCommand = &ClientSession::SAB_CLIENT_GUID;
  EXPECT_EQ(StartIo(message_.data(), 32, message_.data(), 32), 1u);
  ExpectLast(List("StartIoEx:1041: Call to FenuInit3() API failed.",
                  "StartIoEx:1042: Client GUID not supported"));
  EXPECT_STREQ(state.fenuErrorText, "Client GUID not supported");
  EXPECT_EQ(state.fenuErrorCode, 0xFFFFFFFF);
  KaloCleanup3(handle);
}

TEST_F(Interposed, failed_disconnection_destroys_the_session_all_the_same) {
  void* handle = InitA();
  atDisconnectAll = Break;
  const StateSnapshot before;
  Logger::logBase.level = 0;
  sink->onLine = nullptr;
  EXPECT_EQ(KaloCleanup3(handle), 1u);
  ExpectLast(List("<close>", "SessionCleanup: IoControl() not implemented") +
             Of("KaloCleanup3", "KALO DREM Ref Cnt A 0", "KALO DREM Ref Cnt B 0",
                "KALO DREM Ref Cnt B 0", "Call to KaloCleanup3() API failed."));
  EXPECT_THAT(before.Changed(), ElementsAre("kaloRefCountA"));
  Trace();
  FenuInit3(&handle);
  EXPECT_EQ(FenuCleanup3(handle), 1u);
  ExpectLast({"FenuCleanup3:742: Call to FenuCleanup3() API failed."});
  EXPECT_EQ(state.fenuInterfaceVersion, 0u);
  FenuCleanup();
  FenuInit();
  EXPECT_EQ(FenuCleanup(), 1u);
  ExpectLast({"FenuCleanup:935: Call to FenuCleanup() API failed."});
  EXPECT_EQ(state.fenuSession, nullptr);
  // The status of session B replaces that of A: without B, then with it.
  for (const bool withB : {false, true}) {
    for (const bool failB : {false, true}) {
      if (failB && !withB) continue;
      InitA();
      if (withB) InitA();
      int calls = 0;
      atDisconnectAll = [&] {
        if (++calls == 1 || failB) Break();
      };
      const bool fails = !withB || failB;
      EXPECT_EQ(KaloCleanup(), fails ? 1u : 0u);
      ExpectLast({fails ? "KaloCleanup:870: Call to KaloCleanup() API failed."
                        : "KaloCleanup:866: Call to KaloCleanup() API completed successfully."});
      EXPECT_EQ(state.kaloSessionA, nullptr);
      EXPECT_EQ(state.kaloSessionB, nullptr);
    }
  }
  EXPECT_EQ(engine.OpenDescriptors(), 0u);
}

}  // namespace
}  // namespace test
