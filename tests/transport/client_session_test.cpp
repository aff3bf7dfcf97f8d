// Tests ClientSession: which client serves a command, and which calls are refused.

#include "transport/client_session.h"

#include <cstring>
#include <new>

#include "tests/support/library_test.h"
#include "transport/cp_drem_session.h"
#include "transport/kalo_exception.h"

namespace test {
namespace {

using zulisim::Operation;

const _GUID* const kKalo = &ClientSession::KALO_CLIENT_GUID;
const _GUID* const kFenu = &ClientSession::FENU_CLIENT_GUID;
const _GUID* const kSab = &ClientSession::SAB_CLIENT_GUID;

class Multiplexer : public LibraryTest {
 protected:
  // Returns the name of the client that received the command.
  std::string Send(uint32_t command, unsigned int length = 32) {
    Bytes buffer = Message(command);
    session.IoMessage(buffer.data(), length, buffer.data(), 32, nullptr, nullptr);
    return engine.Records().back().client;
  }

  ClientSession session;
};

TEST_F(Multiplexer, routes_each_family_of_commands_and_wrappers_of_one_client) {
  const auto allocate = [this] { session.IoctlAllocWrapper(nullptr, 9, nullptr); };
  const auto release = [this] { session.IoctlFreeWrapper(nullptr, 9); };
  for (const std::string& thrown :
       {Thrown([this] { Send(0, 15); }), Thrown(allocate), Thrown(release)}) {
    EXPECT_EQ(thrown, LogicError("No active DREM sessions"));
  }
  session.ConnectClient(kFenu);
  EXPECT_EQ(Send(0x10), "FENU");  // the only client serves every command
  EXPECT_EQ(Thrown(allocate) + Thrown(release), "nothingnothing");
  session.ConnectClient(kSab);
  for (const std::string& thrown : {Thrown(allocate), Thrown(release)}) {
    EXPECT_EQ(thrown, LogicError("IOCTL call without active DREM sessions"));
  }
  EXPECT_EQ(Thrown([this] { Send(0x10); }), LogicError("Not connected to client of this command"));
  session.ConnectClient(kKalo);
  for (const uint32_t command : {0u, 0xFFFFu, 0x10000u, 0x2FFFFu, 0x40000u, 0x4FFFFu, 0x50000u,
                                 0x7FFFFu, 0xFFFFFFFFu, 0x80030000u}) {
    EXPECT_EQ(Send(command), "KALO") << command;
  }
  for (const uint32_t command : {0x30000, 0x3FFFF}) EXPECT_EQ(Send(command), "FENU") << command;
  Bytes reply(32);
  const uint64_t writes = Count(Operation::kWrite);
  session.IoMessage(nullptr, 32, reply.data(), 32, nullptr, nullptr);
  EXPECT_EQ(Count(Operation::kWrite), writes) << "a null request has no command";
}

TEST_F(Multiplexer, connects_a_child_only_beside_its_parent) {
  EXPECT_EQ(Thrown([this] { session.ConnectClient(kFenu, kKalo); }),
            RuntimeError("ParentSession not connected"));
  session.ConnectClient(kKalo);
  session.ConnectClient(kKalo);  // without a parent there is no check
  EXPECT_EQ(Thrown([this] { session.ConnectClient(kKalo, kSab); }),
            RuntimeError("Already connected to this client"));
  session.ConnectClient(kFenu, kKalo);
  session.DisconnectClient(kKalo);
  session.DisconnectClient(kKalo);
  EXPECT_EQ(Send(0x30000), "FENU");
  engine.AddFault({Operation::kOpen, zulisim::ErrnoFault{ENOENT}});
  EXPECT_EQ(Thrown([this] { session.ConnectClient(kSab); }),
            RuntimeError("Cannot open ZULI device."));
  EXPECT_EQ(session.dremSessions.size(), 1u);
}

TEST_F(Multiplexer, disconnects_by_address_and_keeps_the_order) {
  for (const _GUID* guid : {kKalo, kFenu, kSab, kFenu}) session.ConnectClient(guid);
  const std::vector<CpDremSession*> before = session.dremSessions;
  EXPECT_EQ(session.GetDremSession(kFenu), before[1]) << "the first of two";
  session.DisconnectClient(kFenu);
  EXPECT_EQ(session.dremSessions, (std::vector<CpDremSession*>{before[0], before[2], before[3]}));
  EXPECT_EQ(engine.OpenDescriptors(), 3u);
  const _GUID copy = *kKalo;
  EXPECT_EQ(session.GetDremSession(&copy), nullptr);
  EXPECT_EQ(Thrown([&] { session.DisconnectClient(&copy); }),
            LogicError("Not connected to this client"));
  session.DisconnectAllClients();
  session.DisconnectAllClients();
  std::string closed;
  for (const auto& record : engine.Records()) {
    if (record.operation == Operation::kClose) closed += record.client + " ";
  }
  EXPECT_EQ(closed, "FENU KALO SAB FENU ");
}

TEST(ErrorOfSession, keeps_the_tail_of_an_older_text_and_never_a_terminator) {
  // Constructs the session in memory with a known pattern, because the constructor must not change
  // the text.
  alignas(ClientSession) unsigned char memory[sizeof(ClientSession)];
  std::memset(memory, '#', sizeof memory);
  auto* session = new (memory) ClientSession;
  const auto text = [&] { return std::string(session->lastErrorText, 1024); };
  EXPECT_EQ(session->lastErrorStatus, -1);
  session->storeErrInfo(KALO_DLL_STATUS_INVALID_PARAMETER, "abcdef");
  session->storeErrInfo("XY");
  EXPECT_EQ(text(), "XYcdef" + std::string(1018, '#'));
  session->storeErrInfo(std::string(1024, 'l') + "beyond");
  EXPECT_EQ(text(), std::string(1024, 'l'));
  session->storeErrInfo(KALO_DLL_STATUS_INVALID_PARAMETER, std::string(1024, 'm') + "beyond");
  EXPECT_EQ(text(), std::string(1024, 'm'));
  session->~ClientSession();
}

TEST(Exception, builds_its_text_once) {
  const KaloException exception(KALO_DLL_STATUS{0xABCDEF}, nullptr);
  const char* text = exception.what();
  EXPECT_STREQ(text, "KALO Exception 0xabcdef ");
  EXPECT_EQ(exception.what(), text);
}

}  // namespace
}  // namespace test
