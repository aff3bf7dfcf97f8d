// Walks through the errno table: each row is what the transport does, and what docs/errors.md says.

#include "transport/errno_policy.h"

#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>

#include "simulator/operation.h"
#include "tests/support/library_test.h"
#include "transport/cp_drem_session.h"

namespace {

using transport::DeviceCall;
using transport::ErrnoPolicy;
using transport::Remedy;
using zulisim::Operation;

struct CallName {
  DeviceCall call;
  const char* name;
  Operation operation;
};

constexpr CallName kCalls[] = {
    {DeviceCall::kOpen, "open", Operation::kOpen},
    {DeviceCall::kConnect, "ioctl, connecting to a client", Operation::kIoctl},
    {DeviceCall::kClose, "close", Operation::kClose},
    {DeviceCall::kWrite, "write of a request", Operation::kWrite},
    {DeviceCall::kRead, "read of a reply", Operation::kRead},
    {DeviceCall::kReadPrivateData, "read of private data", Operation::kRead},
    {DeviceCall::kIoctl, "ioctl, passed through", Operation::kIoctl},
};

const CallName& NameOf(DeviceCall call) { return kCalls[static_cast<int>(call)]; }

std::string NameOfError(const ErrnoPolicy& policy) {
  if (policy.error != transport::kAnyErrno) return zulisim::ErrnoName(policy.error);
  const bool only = &transport::PolicyFor(policy.call, ENODEV) == &policy;
  return only ? "any" : "any other";
}

std::string Row(const ErrnoPolicy& policy) {
  std::ostringstream row;
  row << "| " << NameOf(policy.call).name << " | " << NameOfError(policy) << " | ";
  switch (policy.remedy) {
    case Remedy::kReconnect:
      row << "reconnect, " << transport::kMaxRecoveries
          << " times at most, and call again after all but the last; then throw";
      break;
    case Remedy::kThrow:
      row << "throw";
      break;
    case Remedy::kIgnore:
      row << "log it and go on";
      break;
  }
  row << " | ";
  if (policy.thrown != nullptr) row << '"' << policy.thrown << '"';
  row << " |\n";
  return row.str();
}

class ErrnoPolicyTest : public test::LibraryTest {
 protected:
  ErrnoPolicyTest() {
    engine.SetResponder("KALO", [](const zulisim::Bytes& request) {
      return zulisim::EchoReply(request, 0x80000000, zulisim::Bytes(16, 0x5A));
    });
  }

  // Makes the call of the row on a fresh session; what it throws.
  std::string Run(const ErrnoPolicy& policy, int error, uint64_t times) {
    return test::Thrown([&] {
      std::optional<CpDremSession> session;
      const bool connects = policy.call == DeviceCall::kOpen || policy.call == DeviceCall::kConnect;
      if (!connects) session.emplace(&ClientSession::KALO_CLIENT_GUID, nullptr);
      const uint64_t first = engine.Count(NameOf(policy.call).operation) + 1 +
                             (policy.call == DeviceCall::kReadPrivateData ? 1 : 0);
      AddFaults(policy.call, first, error, times);
      if (connects) session.emplace(&ClientSession::KALO_CLIENT_GUID, nullptr);
      if (policy.call == DeviceCall::kIoctl) {
        unsigned char record[16] = {};
        std::memcpy(record, &ClientSession::KALO_CLIENT_GUID, sizeof record);
        session->SendIoctlToZuli(static_cast<int>(zulisim::kConnectRequest), record);
      } else if (!connects) {
        Exchange(*session);
      }
    });
  }

  static void Exchange(CpDremSession& session) {
    test::Bytes request = test::Message(1);
    test::Bytes reply(64);
    unsigned char privateData[16];
    unsigned int privateDataLength = 0;
    session.IoMessage(request.data(), static_cast<unsigned int>(request.size()), reply.data(),
                      static_cast<unsigned int>(reply.size()), privateData, &privateDataLength);
  }

  // Failures in a row; those of a passed-through ioctl leave out the connecting one between them.
  void AddFaults(DeviceCall call, uint64_t first, int error, uint64_t times) {
    const uint64_t step = call == DeviceCall::kIoctl ? 2 : 1;
    for (uint64_t i = 0; i < times; ++i) {
      engine.AddFault({NameOf(call).operation, first + i * step, 1, zulisim::ErrnoFault{error}});
    }
  }
};

TEST_F(ErrnoPolicyTest, every_row_is_what_the_transport_does) {
  for (const ErrnoPolicy& policy : transport::kErrnoPolicies) {
    if (policy.call == DeviceCall::kClose) continue;
    // EPERM has no row of its own anywhere.
    const int error = policy.error == transport::kAnyErrno ? EPERM : policy.error;
    SCOPED_TRACE(Row(policy));
    const bool reconnects = policy.remedy == Remedy::kReconnect;
    const uint64_t opens = engine.Count(Operation::kOpen);
    const uint64_t fatal = reconnects ? transport::kMaxRecoveries : 1;
    EXPECT_EQ(Run(policy, error, fatal), test::RuntimeError(policy.thrown));
    EXPECT_EQ(engine.Count(Operation::kOpen) - opens, reconnects ? 1 + fatal : 1);
    engine.ClearFaults();
    // One loss fewer is survived; a reply would be gone with its descriptor.
    if (!reconnects || policy.call != DeviceCall::kWrite) continue;
    EXPECT_EQ(Run(policy, error, fatal - 1), "nothing");
    engine.ClearFaults();
  }
}

TEST_F(ErrnoPolicyTest, a_close_that_fails_is_logged_and_forgotten) {
  CpDremSession session(&ClientSession::KALO_CLIENT_GUID, nullptr);
  Trace();
  TakeLog();
  engine.FailNext(Operation::kClose, EIO);
  session.Reconnect();
  EXPECT_THAT(TakeLog(), ::testing::Contains(
                             "Disconnect: close() for ZUL device /dev/zuli failed with errno = 5."));
}

TEST(ErrnoPolicyDocument, shows_the_table_as_it_is) {
  std::string table;
  for (const ErrnoPolicy& policy : transport::kErrnoPolicies) table += Row(policy);
  std::ifstream file(ERRORS_DOCUMENT);
  std::stringstream document;
  document << file.rdbuf();
  EXPECT_NE(document.str().find("|---|---|---|---|\n" + table + "\n"), std::string::npos)
      << "the table in " ERRORS_DOCUMENT " should read:\n"
      << table;
}

}  // namespace
