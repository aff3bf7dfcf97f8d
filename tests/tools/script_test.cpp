#include "tools/script.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "api/kalo_dll_state.h"
#include "tools/input_error.h"
#include "tools/session_book.h"

namespace kaloctl {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

std::string ErrorOf(std::string_view script) {
  try {
    ParseScript(script, "day");
  } catch (const InputError& error) {
    return error.what();
  }
  return "no error";
}

TEST(Script, reads_calls_with_all_that_stands_behind_them) {
  const auto steps = ParseScript(
      "# a comment\n\n  KaloStateInit 0x30000 1 # option\r\nKaloInit3 a\n"
      "StartIoEx3 a 0x4 32 reply=8 private\nStartIoEx 0x30001 16 IOCTLFRE input=null reply=null\n"
      "KaloStateInit null\nKaloCleanup3 null",
      "day");
  ASSERT_EQ(steps.size(), 6u);
  EXPECT_EQ(steps[0].line, 3u);
  EXPECT_EQ(steps[0].text, "KaloStateInit 0x30000 1");
  EXPECT_EQ(steps[0].apiVersion, 0x30000u);
  EXPECT_EQ(steps[0].option, 1u);
  EXPECT_EQ(steps[2].handle, "a");
  EXPECT_EQ(steps[2].command.length, 32u);
  EXPECT_EQ(steps[2].command.replyLength, 8u);
  EXPECT_EQ(steps[2].command.privateData, PrivateData::kBuffer);
  EXPECT_EQ(steps[3].command.commandId, 0x30001u);
  EXPECT_EQ(steps[3].command.replyLength, std::nullopt);
  EXPECT_TRUE(steps[3].command.nullInput);
  EXPECT_EQ(steps[3].command.privateData, PrivateData::kFreeTag);
  EXPECT_TRUE(steps[4].nullParams);
  EXPECT_EQ(steps[5].handle, kNullHandle);
}

TEST(Script, names_line_word_and_what_would_be_right) {
  const struct {
    const char* script;
    const char* word;
    const char* right;
  } cases[] = {
      {"\nKaloInti3 a", "line 2: unknown call 'KaloInti3'", "did you mean KaloInit3?"},
      {"startio 4 16", "'startio'", "did you mean StartIo?"},
      {"Frobnicate", "'Frobnicate'", "StartIoEx3"},
      {"StartIo3 a 4 16", "wrong word 'a'", "KaloInit3 or FenuInit3 takes in an earlier line"},
      {"StartIo3 a 4 16\nKaloInit3 a", "line 1: wrong word 'a'", "earlier"},
      {"KaloInit3 null", "wrong word 'null'", "not null"},
      {"KaloInit3 3a", "wrong word '3a'", "a name"},
      {"KaloInit3", "the line ends early", "KaloInit3 NAME"},
      {"KaloInit a", "wrong word 'a'", "nothing more"},
      {"StartIo 4z 16", "wrong word '4z'", "a command identifier such as"},
      {"StartIo 4 0x100000000", "wrong word '0x100000000'", "0 to 67108864"},
      {"StartIo 4 4000000000", "wrong word '4000000000'", "0 to 67108864"},
      {"StartIo 4", "the line ends early", "the request's length"},
      {"StartIo 4 16 private", "wrong word 'private'", "reply=N"},
      {"StartIoEx 4 16 reply=", "the line ends early", "reply="},
      {"StartIoEx 4 16 reply=x", "wrong word 'x'", "reply="},
      {"KaloStateInit 3.0 1", "wrong word '3.0'", "0x30000 or 0x30002"},
      {"KaloStateInit null 1", "wrong word '1'", "nothing more"},
  };
  for (const auto& wrong : cases) {
    EXPECT_THAT(ErrorOf(wrong.script), AllOf(HasSubstr(wrong.word), HasSubstr(wrong.right)))
        << wrong.script;
  }
}

TEST(Script, reports_every_wrong_line_at_once) {
  EXPECT_THAT(
      ErrorOf("foo\nKaloInit\nStartIo x 1"),
      AllOf(HasSubstr("day, line 1:"), HasSubstr("\nday, line 3:"), Not(HasSubstr("line 2"))));
}

TEST(SessionBook, follows_sessions_through_reuse_of_their_addresses) {
  KaloDllState& state = gKaloDllState;
  const auto kalo = reinterpret_cast<ClientSession*>(0x1000);
  const auto fenu = reinterpret_cast<ClientSession*>(0x2000);
  SessionBook book;
  const auto after = [&](Call call, const void* handle, uint32_t countA, uint32_t countFenu) {
    state.kaloRefCountA = countA;
    state.fenuRefCount = countFenu;
    book.AfterCall(call, handle);
  };
  state.kaloSessionA = kalo;
  after(Call::kKaloInit3, nullptr, 1, 0);
  after(Call::kKaloCleanup3, kalo, 0, 0);
  EXPECT_TRUE(book.Destroyed(kalo));
  after(Call::kKaloInit3, nullptr, 1, 0);
  EXPECT_FALSE(book.Destroyed(kalo)) << "a new session has taken the address";

  state.fenuSession = fenu;
  state.fenuInterfaceVersion = 3;
  after(Call::kFenuInit3, nullptr, 1, 1);
  after(Call::kFenuInit3, nullptr, 1, 2);
  after(Call::kFenuCleanup3, fenu, 1, 1);
  EXPECT_FALSE(book.Destroyed(fenu)) << "one handle is still out";
  state.fenuInterfaceVersion = 0;
  after(Call::kFenuCleanup3, kalo, 1, 0);
  EXPECT_TRUE(book.Destroyed(kalo)) << "the session given is destroyed";
  EXPECT_FALSE(book.Destroyed(fenu));
  state.fenuSession = nullptr;
  after(Call::kFenuCleanup, nullptr, 1, 0);
  EXPECT_TRUE(book.Destroyed(fenu));
}

}  // namespace
}  // namespace kaloctl
