#include "tools/call/script.h"

#include <gtest/gtest.h>

namespace kaloctl {
namespace {

TEST(Script, reads_calls_with_all_their_arguments) {
  const auto steps = ParseScript(
      "# a comment\n\v\f\n  KaloStateInit 0x30000 1 # option\r\nKaloInit3 a\n"
      "StartIoEx3 a 0x4 32 reply=8 private\nStartIoEx 0x30001 16 IOCTLFRE input=null reply=null\n"
      "KaloStateInit null\nKaloCleanup3 null",
      "day");
  ASSERT_EQ(steps.size(), 6u);
  EXPECT_EQ(steps[0].line, 3u);
  EXPECT_EQ(steps[0].text, "KaloStateInit 0x30000 1");
  EXPECT_EQ(steps[0].apiVersion, 0x30000u);
  EXPECT_EQ(steps[2].command.length, 32u);
  EXPECT_EQ(steps[2].command.replyLength, 8u);
  EXPECT_EQ(steps[2].command.privateData, "private");
  EXPECT_EQ(steps[3].command.replyLength, std::nullopt);
  EXPECT_TRUE(steps[3].command.nullInput);
  EXPECT_EQ(steps[3].command.privateData, "IOCTLFRE");
  EXPECT_TRUE(steps[4].nullParams);
}

}  // namespace
}  // namespace kaloctl
