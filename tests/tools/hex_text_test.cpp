#include "tools/hex_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "tools/input_error.h"
#include "tools/message.h"
#include "tools/number.h"
#include "tools/request_source.h"

namespace kaloctl {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

std::string ErrorOf(std::string_view text) {
  try {
    ParseHexText(text);
  } catch (const InputError& error) {
    return error.what();
  }
  return "no error";
}

TEST(HexText, accepts_every_usual_way_to_write_bytes) {
  EXPECT_THAT(ParseHexText("04 00\t0a\r\nFf"), ElementsAre(0x04, 0x00, 0x0a, 0xff));
  EXPECT_THAT(ParseHexText("0x04000aFF"), ElementsAre(0x04, 0x00, 0x0a, 0xff));
  EXPECT_THAT(ParseHexText("0X04,0x00:0a,"), ElementsAre(0x04, 0x00, 0x0a));
  EXPECT_THAT(ParseHexText("# 11 22\n04#05\n06 # zz"), ElementsAre(0x04, 0x06));
  EXPECT_THAT(ParseHexText(" \n# nothing"), IsEmpty());
}

TEST(HexText, names_line_column_and_character_of_an_error) {
  EXPECT_THAT(ErrorOf("04 00\n 0g"), HasSubstr("line 2, column 3: 'g' is no hexadecimal digit"));
  EXPECT_THAT(ErrorOf("04 0"), HasSubstr("line 1, column 5: a byte lacks its second digit"));
  EXPECT_THAT(ErrorOf("0x"), HasSubstr("line 1, column 3"));
  EXPECT_THAT(ErrorOf("040 0"), HasSubstr("line 1, column 4: a byte lacks"));
}

TEST(HexText, tells_text_from_messages) {
  EXPECT_TRUE(LooksLikeText("04 00 # any words\r\n"));
  const std::vector<uint8_t> message = MakeMessage(0x41, {'a', 'b'});
  EXPECT_FALSE(LooksLikeText({reinterpret_cast<const char*>(message.data()), message.size()}));
  EXPECT_FALSE(LooksLikeText("\xc3\xa4"));
}

TEST(RequestSource, sets_or_makes_the_header_and_says_which_is_missing) {
  RequestSource source;
  EXPECT_THROW(ReadRequest(source), InputError);
  source.command = 0x30001;
  EXPECT_EQ(ReadRequest(source), MakeMessage(0x30001, {}));
  source.hex = "01 02";
  EXPECT_THROW(ReadRequest(source), InputError) << "no header to change";
  source.bodyOnly = true;
  EXPECT_EQ(ReadRequest(source), MakeMessage(0x30001, {1, 2}));
  source.command.reset();
  EXPECT_THROW(ReadRequest(source), InputError) << "no command for the header";
  source.bodyOnly = false;
  EXPECT_THAT(ReadRequest(source), ElementsAre(1, 2)) << "the library refuses it, not the tool";
  source.hex = "11111111 22222222 33333333 44444444 55";
  source.command = 4;
  const std::vector<uint8_t> changed = ReadRequest(source);
  EXPECT_THAT(changed, SizeIs(17));
  EXPECT_EQ(transport::HeaderOf(changed.data()).commandId, 4u);
  EXPECT_EQ(transport::HeaderOf(changed.data()).status, 0x33333333);
}

TEST(ReplyBuffer, ends_at_the_last_byte_written) {
  ReplyBuffer reply(4096);
  EXPECT_THAT(reply.Received(), SizeIs(16)) << "nothing came";
  std::memset(reply.data(), 0, 100);
  EXPECT_THAT(reply.Received(), SizeIs(100)) << "zeros belong to the reply";
  std::memset(reply.data(), 0x55, 4096);
  EXPECT_THAT(reply.Received(), SizeIs(4096));
  ReplyBuffer small(8);
  EXPECT_EQ(small.size(), 8u);
  EXPECT_THAT(small.Received(), SizeIs(8));
}

TEST(Number, takes_32_bits_and_nothing_around_them) {
  EXPECT_EQ(ParseNumber("4294967295"), 0xffffffffu);
  EXPECT_EQ(ParseNumber("0x30001"), 0x30001u);
  for (const char* wrong : {"", "0x", "-1", "+1", " 1", "1 ", "4294967296", "0x100000000", "1h"}) {
    EXPECT_EQ(ParseNumber(wrong), std::nullopt) << wrong;
  }
}

}  // namespace
}  // namespace kaloctl
