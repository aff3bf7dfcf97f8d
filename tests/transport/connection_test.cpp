// One connection: opened, bound to its client, closed, and what stays behind when that fails.

#include "transport/cp_drem_session.h"

#include <fcntl.h>
#include <unistd.h>

#include "tests/support/library_test.h"
#include "transport/zuli_device.h"

namespace test {
namespace {

using zulisim::Operation;

class Connection : public LibraryTest {
 protected:
  Connection() {
    // Numbers that decimal and hexadecimal write differently.
    while (dup(STDERR_FILENO) < 20) {
    }
    Trace();
  }
};

TEST_F(Connection, is_opened_bound_and_closed_in_order) {
  const struct {
    const _GUID* guid;
    const char* client;
  } kClients[] = {{&ClientSession::KALO_CLIENT_GUID, "KALO"},
                  {&ClientSession::FENU_CLIENT_GUID, "FENU"},
                  {&ClientSession::SAB_CLIENT_GUID, "SAB"}};
  for (const auto& [guid, client] : kClients) {
    engine.ClearRecords();
    {
      // The parent is never looked at.
      CpDremSession session(guid, reinterpret_cast<CpDremSession*>(16));
      EXPECT_EQ(TakeTranscript(),
                (List("<open>", "Connect: ZULI FD: " + std::to_string(session.deviceFd), "<ioctl>",
                      "CpDremSession: Open ZULI.")));
      EXPECT_EQ(session.clientGuid, guid);
      EXPECT_EQ(session.connectRecord->out.maxMessageLength, 4096u);
      EXPECT_EQ(session.connectRecord->out.protocolVersion, 1);
      EXPECT_EQ(fcntl(session.deviceFd, F_GETFL) & O_SYNC, 0);
    }
    EXPECT_EQ(TakeTranscript(), (List("<close>", "~CpDremSession: Closed ZULI.")));
    const auto records = engine.Records();
    EXPECT_EQ(records[0].openFlags, O_RDWR);
    EXPECT_EQ(records[0].openMode, 0x101000u);
    EXPECT_EQ(records[1].request, 0xC0104801u);
    EXPECT_EQ(records[1].client, client);
  }
}

TEST_F(Connection, tells_what_fails_and_what_it_leaves_behind) {
  const auto connect = [] { CpDremSession(&ClientSession::KALO_CLIENT_GUID, nullptr); };
  engine.FailNext(Operation::kIoctl, ENOTTY);
  EXPECT_EQ(Thrown(connect), RuntimeError("Cannot connect to ZULI device."));
  const std::string opened = "Connect: ZULI FD: ";
  EXPECT_EQ(
      TakeTranscript(),
      List("<open>", opened + std::to_string(engine.Records()[0].descriptor), "<ioctl ENOTTY>",
           "Connect: ioctl(IOCTL_ZULI_CONNECT_CLIENT) failed with errno = 25."));
  EXPECT_EQ(engine.OpenDescriptors(), 1u);

  const Lines notClosed{"<close EIO>",
                        "Disconnect: close() for ZUL device /dev/zuli failed with errno = 5."};
  const Lines notOpened{"<open EACCES>",
                        "Connect: open() for ZUL device /dev/zuli failed with errno = 13."};
  {
    CpDremSession session(&ClientSession::KALO_CLIENT_GUID, nullptr);
    TakeLog();
    engine.FailNext(Operation::kClose, EIO, 2);
    session.Reconnect();
    EXPECT_EQ(TakeTranscript(),
              notClosed + List("<open>", opened + std::to_string(session.deviceFd), "<ioctl>"));
  }
  EXPECT_EQ(TakeTranscript(), notClosed + Of("~CpDremSession", "Closed ZULI."));

  CpDremSession session(&ClientSession::KALO_CLIENT_GUID, nullptr);
  TakeLog();
  engine.FailNext(Operation::kOpen, EACCES, 2);
  EXPECT_EQ(Thrown([&] { session.Reconnect(); }), RuntimeError("Cannot open ZULI device."));
  EXPECT_EQ(TakeTranscript(), List("<close>") + notOpened);
  EXPECT_EQ(session.deviceFd, -1);
  EXPECT_EQ(Thrown(connect), RuntimeError("Cannot open ZULI device."));
  EXPECT_EQ(TakeTranscript(), notOpened);
}

}  // namespace
}  // namespace test
