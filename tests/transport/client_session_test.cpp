// Tests ClientSession: which client serves a command, and which calls are refused.

#include "transport/client_session.h"

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
  // Returns the name of the client that received the command, or what was thrown.
  std::string Send(uint32_t command, unsigned int length = 32) {
    Bytes buffer = Message(command);
    const std::string thrown = Thrown(
        [&] { session.IoMessage(buffer.data(), length, buffer.data(), 32, nullptr, nullptr); });
    return thrown == "nothing" ? engine.Records().back().client : thrown;
  }

  // These functions return what was thrown.
  std::string Wrap() {
    const std::string thrown = Thrown([&] { session.IoctlAllocWrapper(nullptr, 9, nullptr); });
    EXPECT_EQ(Thrown([&] { session.IoctlFreeWrapper(nullptr, 9); }), thrown);
    return thrown;
  }
  template <typename... Guids>
  std::string Connect(Guids... guids) {
    return Thrown([&] { session.ConnectClient(guids...); });
  }

  ClientSession session;
};

TEST_F(Multiplexer, routes_each_family_of_commands_and_wrappers_of_one_client) {
  EXPECT_EQ(Send(0, 15), LogicError("No active DREM sessions"));
  EXPECT_EQ(Wrap(), LogicError("No active DREM sessions"));
  Connect(kFenu);
  EXPECT_EQ(Send(0x10), "FENU");  // the only client serves every command
  EXPECT_EQ(Wrap(), "nothing");
  Connect(kSab);
  EXPECT_EQ(Wrap(), LogicError("IOCTL call without active DREM sessions"));
  EXPECT_EQ(Send(0x10), LogicError("Not connected to client of this command"));
  Connect(kKalo);
  for (const uint32_t family : {0, 1, 2, 3, 4, 5, 7, 0x8003, 0xFFFF}) {
    const std::string client = family == 3 ? "FENU" : "KALO";
    for (const uint32_t low : {0, 0xFFFF}) EXPECT_EQ(Send(family << 16 | low), client) << family;
  }
  Bytes request = Message(0x10);
  Logger::logBase.level = 100;
  session.IoMessage(nullptr, 32, request.data(), 32, nullptr, nullptr);  // has no command
  session.IoMessage(request.data(), 32, nullptr, 32, nullptr, nullptr);
  EXPECT_THAT(TakeRaw(), testing::Contains(testing::EndsWith("in IOMessage output parameters")));
}

TEST_F(Multiplexer, connects_a_child_beside_its_parent_and_disconnects_by_address_in_order) {
  EXPECT_EQ(Connect(kFenu, kKalo), RuntimeError("ParentSession not connected"));
  EXPECT_EQ(Connect(kKalo), "nothing");
  EXPECT_EQ(Connect(kKalo, kSab), RuntimeError("Already connected to this client"));
  EXPECT_EQ(Connect(kFenu, kKalo), "nothing");
  EXPECT_EQ(Connect(kSab), "nothing");
  EXPECT_EQ(Connect(kFenu), "nothing") << "not checked without a parent";
  const std::vector<CpDremSession*> before = session.dremSessions;
  EXPECT_EQ(session.GetDremSession(kFenu), before.at(1)) << "the first of two";
  engine.AddFault({Operation::kOpen, zulisim::ErrnoFault{ENOENT}});
  EXPECT_EQ(Connect(kSab), RuntimeError("Cannot open ZULI device."));
  session.DisconnectClient(kFenu);
  EXPECT_THAT(session.dremSessions, testing::ElementsAre(before[0], before[2], before[3]));
  EXPECT_EQ(engine.OpenDescriptors(), 3u);
  const _GUID copy = *kKalo;
  EXPECT_EQ(session.GetDremSession(&copy), nullptr);
  EXPECT_EQ(Thrown([&] { session.DisconnectClient(&copy); }),
            LogicError("Not connected to this client"));
  session.DisconnectClient(kKalo);
  EXPECT_EQ(Send(0x30000), "FENU") << "without the connection of its parent";
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
  // the text, and nothing may change the four bytes behind it.
  alignas(ClientSession) char memory[sizeof(ClientSession)];
  std::memset(memory, '#', sizeof memory);
  auto* session = new (memory) ClientSession;
  const auto text = [&] { return std::string(memory + 28, sizeof memory - 28); };
  EXPECT_EQ(session->lastErrorStatus, -1);
  session->storeErrInfo(KALO_DLL_STATUS_INVALID_PARAMETER, "abcdef");
  session->storeErrInfo("XY");
  EXPECT_EQ(text(), "XYcdef" + std::string(1022, '#'));
  session->storeErrInfo(std::string(1024, 'l') + "beyond");
  EXPECT_EQ(text(), std::string(1024, 'l') + "####");
  session->storeErrInfo(KALO_DLL_STATUS_INVALID_PARAMETER, std::string(1024, 'm') + "beyond");
  EXPECT_EQ(text(), std::string(1024, 'm') + "####");
}

TEST(Exception, builds_its_text_once) {
  const KaloException exception(KALO_DLL_STATUS{0xABCDEF}, nullptr);
  const char* text = exception.what();
  EXPECT_STREQ(text, "KALO Exception 0xabcdef ");
  EXPECT_EQ(exception.what(), text);
}

}  // namespace
}  // namespace test
