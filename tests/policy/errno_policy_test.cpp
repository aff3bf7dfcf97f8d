// Walks through the errno table: each row is what the transport does, and what docs/errors.md says.

#include "transport/errno_policy.h"

#include <fstream>
#include <sstream>

#include "simulator/operation.h"
#include "tests/support/library_test.h"
#include "transport/cp_drem_session.h"

namespace {

using transport::DeviceCall;
using transport::ErrnoPolicy;
using transport::Remedy;
using zulisim::Operation;

// In the order of DeviceCall.
constexpr struct {
  const char* name;
  Operation operation;
} kCalls[] = {{"open", Operation::kOpen},
              {"ioctl, connecting to a client", Operation::kIoctl},
              {"close", Operation::kClose},
              {"write of a request", Operation::kWrite},
              {"read of a reply", Operation::kRead},
              {"read of private data", Operation::kRead},
              {"ioctl, passed through", Operation::kIoctl}};

std::string Row(const ErrnoPolicy& policy) {
  std::ostringstream row;
  row << "| " << kCalls[static_cast<int>(policy.call)].name << " | ";
  if (policy.error != transport::kAnyErrno) {
    row << zulisim::ErrnoName(policy.error);
  } else {
    row << (&transport::PolicyFor(policy.call, ENODEV) == &policy ? "any" : "any other");
  }
  row << " | ";
  if (policy.remedy == Remedy::kReconnect) {
    row << "reconnect and call again, " << transport::kMaxRecoveries
        << " times at most; then throw";
  } else {
    row << (policy.remedy == Remedy::kThrow ? "throw" : "log it and go on");
  }
  row << " | ";
  if (policy.thrown != nullptr) row << '"' << policy.thrown << '"';
  row << " |\n";
  return row.str();
}

class ErrnoPolicyTest : public test::LibraryTest {
 protected:
  // Makes the call of the row on a fresh session, `times` failures in a row ahead of it.
  std::string Run(const ErrnoPolicy& policy, int error, uint64_t times) {
    const bool connects = policy.call == DeviceCall::kOpen || policy.call == DeviceCall::kConnect;
    const Operation operation = kCalls[static_cast<int>(policy.call)].operation;
    return test::Thrown([&] {
      std::optional<CpDremSession> session;
      if (!connects) session.emplace(&ClientSession::KALO_CLIENT_GUID, nullptr);
      // A recovery's connecting ioctl is left out, and the read of a reply before private data.
      const uint64_t step = policy.call == DeviceCall::kIoctl ? 2 : 1;
      const uint64_t first =
          Count(operation) + (policy.call == DeviceCall::kReadPrivateData ? 2 : 1);
      for (uint64_t i = 0; i < times; ++i) {
        engine.AddFault({operation, first + i * step, 1, zulisim::ErrnoFault{error}});
      }
      if (connects) session.emplace(&ClientSession::KALO_CLIENT_GUID, nullptr);
      test::Bytes message = test::Message(1);
      unsigned char data[16] = {};
      unsigned int length = 0;
      if (policy.call == DeviceCall::kIoctl) {
        session->SendIoctlToZuli(0, data);
      } else if (!connects) {
        session->IoMessage(message.data(), 32, message.data(), 32, data, &length);
      }
    });
  }
};

TEST_F(ErrnoPolicyTest, every_row_is_what_the_transport_does) {
  engine.SetResponder("KALO", [](const zulisim::Bytes& request) {
    return zulisim::EchoReply(request, 0x80000000, zulisim::Bytes(16, 0x5A));
  });
  for (const ErrnoPolicy& policy : transport::kErrnoPolicies) {
    SCOPED_TRACE(Row(policy));
    // EPERM has no row of its own anywhere.
    const int error = policy.error == transport::kAnyErrno ? EPERM : policy.error;
    const bool reconnects = policy.remedy == Remedy::kReconnect;
    const uint64_t opens = Count(Operation::kOpen);
    const uint64_t fatal = reconnects ? transport::kMaxRecoveries : 1;
    EXPECT_EQ(Run(policy, error, fatal),
              policy.thrown == nullptr ? "nothing" : test::RuntimeError(policy.thrown));
    EXPECT_EQ(Count(Operation::kOpen) - opens, reconnects ? 1 + fatal : 1);
    engine.ClearFaults();
    // One loss fewer is survived; a reply would be gone with its descriptor.
    if (!reconnects || policy.call != DeviceCall::kWrite) continue;
    EXPECT_EQ(Run(policy, error, fatal - 1), "nothing");
    engine.ClearFaults();
  }
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
