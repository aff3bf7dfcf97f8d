#include "common/hex.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "tools/call/message.h"

namespace kaloctl {
namespace {

using common::LooksLikeText;

using testing::SizeIs;

TEST(HexText, tells_text_from_messages) {
  EXPECT_TRUE(LooksLikeText("04 00 # any words\r\n"));
  EXPECT_FALSE(LooksLikeText("\x01"));
  EXPECT_FALSE(LooksLikeText("\xc3\xa4"));
}

TEST(ReplyBuffer, ends_at_the_last_byte_written) {
  ReplyBuffer reply(4096);
  EXPECT_THAT(reply.Received(), SizeIs(0)) << "nothing came";
  EXPECT_GE(transport::HeaderOf(reply.data()).status, 0) << "or private data would be asked for";
  std::memset(reply.data(), 0, 17);
  EXPECT_THAT(reply.Received(), SizeIs(17)) << "zeros belong to the reply";
}

}  // namespace
}  // namespace kaloctl
