#include "common/hex.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "common/input_error.h"
#include "tools/call/message.h"
#include "common/number.h"

namespace kaloctl {
namespace {

using common::InputError;
using common::LooksLikeText;
using common::ParseHex;
using common::ParseNumber;

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using testing::ThrowsMessage;

TEST(HexText, accepts_every_usual_way_to_write_bytes) {
  EXPECT_THAT(ParseHex("04 00\t0a\r\nFf"), ElementsAre(0x04, 0x00, 0x0a, 0xff));
  EXPECT_THAT(ParseHex("0X04,0x000a:0b,"), ElementsAre(0x04, 0x00, 0x0a, 0x0b));
  EXPECT_THAT(ParseHex("# 11 22\n04#05\n06 # zz"), ElementsAre(0x04, 0x06));
}

TEST(HexText, names_line_column_and_character_of_an_error) {
  for (const auto& [text, error] :
       {std::pair("04 00\n 0g", "line 2, column 3: 'g' is not a hexadecimal digit"),
        {"04 0#", "line 1, column 5: a byte lacks its second digit"},
        {"0x", "line 1, column 3"}}) {
    EXPECT_THAT([wrong = text] { ParseHex(wrong); },
                ThrowsMessage<InputError>(HasSubstr(error)));
  }
}

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

TEST(Number, takes_32_bits_and_nothing_around_them) {
  EXPECT_EQ(ParseNumber("4294967295"), 0xffffffffu);
  EXPECT_EQ(ParseNumber("0x30001"), 0x30001u);
  for (const char* wrong : {"", "0x", "-1", "+1", " 1", "4294967296", "0x100000000", "1h"}) {
    EXPECT_EQ(ParseNumber(wrong), std::nullopt) << wrong;
  }
}

}  // namespace
}  // namespace kaloctl
