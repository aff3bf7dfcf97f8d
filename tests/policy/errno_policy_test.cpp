// Walks through the errno table: each row is what the transport does, and what docs/errors.md says.

#include "transport/errno_policy.h"

#include <fstream>
#include <sstream>

#include "tests/support/library_test.h"
#include "transport/cp_drem_session.h"

namespace {

using transport::DeviceCall;
using transport::ErrnoPolicy;
using transport::Remedy;
using zulisim::Operation;

// By the number of the call; a passed-through ioctl leaves out the connecting one of a recovery.
constexpr struct {
  const char* name;
  Operation operation;
  uint64_t first, stride;
} kCalls[] = {
    {"open", Operation::kOpen, 1, 1},
    {"ioctl, connecting to a client", Operation::kIoctl, 1, 1},
    {"close", Operation::kClose, 1, 1},
    {"write of a request", Operation::kWrite, 1, 1},
    {"read of a reply", Operation::kRead, 1, 1},
    {"read of private data", Operation::kRead, 2, 1},
    {"ioctl, passed through", Operation::kIoctl, 2, 2},
};

std::string Row(const ErrnoPolicy& policy) {
  const bool only = &transport::PolicyFor(policy.call, ENODEV) == &policy;
  const std::string any = only ? "any" : "any other";
  const std::string remedies[] = {"reconnect, " + std::to_string(transport::kMaxRecoveries) +
                                      " times at most, and call again after all but the last; "
                                      "then throw",
                                  "throw", "log it and go on"};
  const std::string thrown = policy.thrown == nullptr ? "" : policy.thrown;
  return "| " + std::string(kCalls[static_cast<int>(policy.call)].name) + " | " +
         (policy.error == transport::kAnyErrno ? any : zulisim::ErrnoName(policy.error)) + " | " +
         remedies[static_cast<int>(policy.remedy)] + " | " +
         (thrown.empty() ? "" : '"' + thrown + '"') + " |\n";
}

class ErrnoPolicyTest : public test::LibraryTest {};

TEST_F(ErrnoPolicyTest, every_row_is_what_the_transport_does) {
  engine.SetResponder("KALO", [](const zulisim::Bytes& request) {
    return zulisim::EchoReply(request, 0x80000000, zulisim::Bytes(16));
  });
  for (const ErrnoPolicy& policy : transport::kErrnoPolicies) {
    SCOPED_TRACE(Row(policy));
    const auto& [name, operation, first, stride] = kCalls[static_cast<int>(policy.call)];
    // EPERM has no row of its own anywhere.
    const int error = policy.error == transport::kAnyErrno ? EPERM : policy.error;
    const uint64_t times = policy.remedy == Remedy::kReconnect ? transport::kMaxRecoveries : 1;
    const uint64_t opens = Count(Operation::kOpen);
    for (uint64_t i = 0; i < times; ++i) {
      engine.AddFault(
          {operation, Count(operation) + first + i * stride, 1, zulisim::ErrnoFault{error}});
    }
    const std::string thrown = test::Thrown([passed = policy.call == DeviceCall::kIoctl] {
      CpDremSession session(&ClientSession::KALO_CLIENT_GUID, nullptr);
      test::Bytes message = test::Message(1), privateData(16);
      unsigned int length = 0;
      if (passed) session.SendIoctlToZuli(1, message.data());
      session.IoMessage(message.data(), 32, message.data(), 32, privateData.data(), &length);
    });
    const bool ignored = policy.remedy == Remedy::kIgnore;
    EXPECT_EQ(thrown, ignored ? "nothing" : test::RuntimeError(policy.thrown));
    EXPECT_EQ(Count(Operation::kOpen) - opens,
              1 + (policy.remedy == Remedy::kReconnect ? times : 0));
    engine.ClearFaults();
  }
}

TEST(ErrnoPolicyDocument, shows_the_table_as_it_is) {
  std::string table;
  for (const ErrnoPolicy& policy : transport::kErrnoPolicies) table += Row(policy);
  std::stringstream document;
  document << std::ifstream(ERRORS_DOCUMENT).rdbuf();
  EXPECT_NE(document.str().find("|---|---|---|---|\n" + table + "\n"), std::string::npos)
      << "the table in " ERRORS_DOCUMENT " should read:\n"
      << table;
}

}  // namespace
