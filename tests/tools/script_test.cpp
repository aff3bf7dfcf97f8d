#include "tools/call/script.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "api/kalo_dll_state.h"
#include "common/input_error.h"
#include "tools/call/destroyed_sessions.h"

namespace kaloctl {
namespace {

using testing::AllOf;
using testing::HasSubstr;

using testing::ThrowsMessage;

TEST(Script, reads_calls_with_all_that_stands_behind_them) {
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
  EXPECT_EQ(steps[2].command.privateData, PrivateData::kBuffer);
  EXPECT_EQ(steps[3].command.replyLength, std::nullopt);
  EXPECT_TRUE(steps[3].command.nullInput);
  EXPECT_EQ(steps[3].command.privateData, PrivateData::kFreeTag);
  EXPECT_TRUE(steps[4].nullParams);
}

TEST(Script, names_every_wrong_line_and_word_and_what_would_be_right) {
  const struct {
    const char* script;
    const char* word;
    const char* right;
  } cases[] = {
      {"\nKaloInti3 a", "line 2: unknown call 'KaloInti3'", "did you mean 'KaloInit3'?"},
      {"Frobnicate", "'Frobnicate'", "StartIoEx3"},
      {"StartIo3 a 4 16\nKaloInit3 a", "line 1: wrong word 'a'", "takes in an earlier line"},
      {"KaloInit3 null", "wrong word 'null'", "not null"},
      {"KaloInit3 3a", "wrong word '3a'", "a name"},
      {"KaloInit3", "the line ends early", "KaloInit3 NAME"},
      {"KaloInit a", "wrong word 'a'", "nothing more"},
      {"StartIo 4z 16", "wrong word '4z'", "a command identifier such as"},
      {"StartIo 4 67108865", "wrong word '67108865'", "0 to 67108864"},
      {"StartIo 4 16 private", "wrong word 'private'", "reply=N"},
      {"StartIoEx 4 16 reply=x", "wrong word 'x'", "reply="},
      {"KaloStateInit 3.0 1", "wrong word '3.0'", "0x30000 or 0x30002"},
      {"foo\nKaloInit\nStartIo x 1", "day, line 1:", "\nday, line 3:"},
  };
  for (const auto& wrong : cases) {
    EXPECT_THAT(
        [&] { ParseScript(wrong.script, "day"); },
        ThrowsMessage<common::InputError>(AllOf(HasSubstr(wrong.word), HasSubstr(wrong.right))))
        << wrong.script;
  }
}

TEST(DestroyedSessions, forgets_a_session_when_a_new_one_takes_its_address) {
  const auto session = gKaloDllState.kaloSessionA = reinterpret_cast<ClientSession*>(0x1000);
  DestroyedSessions destroyed;
  for (const uint32_t count : {1, 0, 1}) {
    gKaloDllState.kaloRefCountA = count;
    destroyed.AfterCall(EntryPoint::kKaloInit3, nullptr);
    EXPECT_EQ(destroyed.Contains(session), count == 0);
  }
}

}  // namespace
}  // namespace kaloctl
