// Checks that the table in docs/errors.md is the errno table of the library.

#include "transport/errno_policy.h"

#include "simulator/device/operation.h"
#include "tests/support/standard_headers.h"

namespace {

TEST(ErrnoPolicyDocument, shows_the_table_as_it_is) {
  const std::string calls[] = {"open",
                               "ioctl, connecting to a client",
                               "close",
                               "write of a request",
                               "read of a reply",
                               "read of private data",
                               "ioctl, passed through"};
  const std::string remedies[] = {"reconnect up to " + std::to_string(transport::kMaxRecoveries) +
                                      " times and retry after each but the last; then throw",
                                  "throw", "log it and continue"};
  std::string table;
  for (const transport::ErrnoPolicy& policy : transport::kErrnoPolicies) {
    const bool only = &transport::PolicyFor(policy.call, ENODEV) == &policy;
    const std::string any = only ? "any" : "any other";
    const std::string thrown = policy.thrown == nullptr ? "" : policy.thrown;
    table += "| " + calls[static_cast<int>(policy.call)] + " | " +
             (policy.error == transport::kAnyErrno ? any : zulisim::ErrnoName(policy.error)) +
             " | " + remedies[static_cast<int>(policy.remedy)] + " | " +
             (thrown.empty() ? "" : '"' + thrown + '"') + " |\n";
  }
  std::stringstream document;
  document << std::ifstream(ERRORS_DOCUMENT).rdbuf();
  EXPECT_NE(document.str().find("|---|---|---|---|\n" + table + "\n"), std::string::npos)
      << "the table in " ERRORS_DOCUMENT " should read:\n"
      << table;
}

}  // namespace
