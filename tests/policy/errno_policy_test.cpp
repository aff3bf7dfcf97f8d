// docs/errors.md shows the errno table; that the transport goes by it, its own tests show.

#include "transport/errno_policy.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <sstream>

#include "simulator/operation.h"

namespace {

using transport::DeviceCall;
using transport::ErrnoPolicy;
using transport::Remedy;

// In the order of DeviceCall.
constexpr const char* kCalls[] = {"open",
                                  "ioctl, connecting to a client",
                                  "close",
                                  "write of a request",
                                  "read of a reply",
                                  "read of private data",
                                  "ioctl, passed through"};

std::string Row(const ErrnoPolicy& policy) {
  std::ostringstream row;
  row << "| " << kCalls[static_cast<int>(policy.call)] << " | ";
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
