#include "simulator/scenario/scenario.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "simulator/scenario/scenario_file.h"
#include "simulator/scenario/scenario_options.h"

namespace zulisim {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kWhole = R"(
seed = 5
[[client]]
name = "probe"
guid = "{00112233-4455-6677-8899-AABBCCDDEEFF}"
[[reply]]
client = "PROBE"
command = 0x10
status = -2
body-file = "body"
latency = "30ms"
[[fault]]
operation = "read"
probability = 0.25
errno = "EIO"
[[fault]]
operation = "read"
probability = 0.25
errno = "EINTR"
)";

TEST(ScenarioTest, file_is_read_in_full) {
  char folder[] = "/tmp/scenario_test.XXXXXX";
  std::ofstream(mkdtemp(folder) + std::string("/body")) << "body";
  Scenario scenario;
  EXPECT_TRUE(ReadScenario(kWhole, folder + std::string("/s.toml"), &scenario).empty());
  std::filesystem::remove_all(folder);
  EXPECT_EQ(GuidText(scenario.clients.at(3).guid), "{00112233-4455-6677-8899-AABBCCDDEEFF}");
  const ReplyRule& reply = scenario.replies.at(0);
  EXPECT_EQ(reply.client, "probe");
  EXPECT_EQ(reply.command, 0x10u);
  EXPECT_EQ(reply.status, 0xfffffffeu);
  EXPECT_EQ(reply.body, Bytes({'b', 'o', 'd', 'y'}));
  EXPECT_EQ(reply.latency, std::chrono::milliseconds(30));

  // Chance strikes the same operations in every run, and others for each fault.
  std::size_t struck = 0;
  std::size_t differs = 0;
  for (std::uint64_t i = 1; i <= 4000; ++i) {
    const bool strikes = scenario.faults.at(0).Strikes(Operation::kRead, i);
    struck += strikes ? 1 : 0;
    differs += strikes != scenario.faults.at(1).Strikes(Operation::kRead, i) ? 1 : 0;
  }
  EXPECT_NEAR(static_cast<double>(struck), 1000, 100);
  EXPECT_NEAR(static_cast<double>(differs), 1500, 150);
}

// What is said of a file's text, or of an option's; the scenario must stay as it was.
std::string File(const std::string& text) {
  Scenario scenario;
  std::string said;
  for (const common::Diagnostic& each : ReadScenario(text, "/nowhere/s.toml", &scenario)) {
    said += common::DiagnosticText("", each) + "\n";
  }
  EXPECT_TRUE(scenario.faults.empty() && scenario.replies.empty()) << text;
  return said;
}

template <void (*kAdd)(const std::string&, Scenario*)>
std::string Option(const std::string& text) {
  Scenario scenario;
  try {
    kAdd(text, &scenario);
    return "";
  } catch (const std::invalid_argument& error) {
    EXPECT_TRUE(scenario.faults.empty() && scenario.replies.empty()) << text;
    return ":" + std::string(error.what());
  }
}

TEST(ScenarioTest, each_mistake_is_named_with_its_place_and_what_would_be_right) {
  constexpr auto kClient = Option<AddClientOption>;
  constexpr auto kReply = Option<AddReplyOption>;
  constexpr auto kFault = Option<AddFaultOption>;
  constexpr auto kShort = Option<AddShortOption>;
  constexpr auto kLoss = Option<AddLossOption>;
  const struct {
    std::string (*read)(const std::string&);
    const char* text;
    const char* place;
    const char* message;
  } cases[] = {
      {File, "a = ", "1:", "not valid TOML"},
      {File, "about = \"\"\"\\\n \xc3\xa9\"\"\"\nseed = \xc3\xa9", "3:8", "not valid TOML"},
      {File, "sede = 1", "1:1", "unknown key 'sede' in a scenario; did you mean 'seed'?"},
      {File, "reply = 1", "1:9", "write [[reply]]"},
      {File, "[[client]]\nname = 'KALA'", "2:8", "new and needs a 'guid'; did you mean 'KALO'?"},
      {File, "[[client]]\nname = 'x'\nguid = '{12}'", "3:8", "'{12}' is not a GUID"},
      {File, "[[client]]\nname = 'SAB'\nguid = 'FBF6FCF196CF4E2EA6A61BAB8CBE36B1'", "3:8", "KALO"},
      {File, "[[client]]\nname = 'KALO'\nmax = 2000000", "3:7", "from 0 to 1048576, not 2000000"},
      {File, "[[client]]\nname = 'KALO'\n[[client]]\nname = 'KALO'", "4:8", "line 1 already"},
      {File, "[[reply]]\nclient = 'KAL0'", "2:10", "known are KALO, FENU, SAB; did you mean 'KA"},
      {File, "[[reply]]\nclient = 'SAB'\nbody-file = '/dev/zero'", "3:13", "at most 1048576 bytes"},
      {File, "[[reply]]\nclient = 'SAB'\nsilent = true\nstatus = 1", "4:10", "sends nothing"},
      {File, "[[reply]]\nclient = 'SAB'\n[[reply]]\nclient = 'sab'", "3:1", "s.toml:1 tells SAB"},
      {File, "[[reply]]\nclient = 'SAB'\nat = '1-4'\n[[reply]]\nclient = 'SAB'\nat = '4-'", "6:6",
       "s.toml:1 tells SAB already how to answer all other commands at some"},
      {File, "[[reply]]\nclient = 'SAB'\nprivate = '00'", "3:11", "a negative status alone"},
      {File, "[[client]]\nname = \"\\u001b[2J\"", "2:8", "'\\x1b[2J' is new"},
      {File, "[[fault]]\noperation = 'read'\nat = 1.5\nshort = 1", "3:6", "not a number with a p"},
      {File, "[[fault]]\noperation = 'read'\nat = 1", "1:1", "one of 'errno', 'short' and 'lose'"},
      {File, "[[fault]]\noperation = 'read'\nprobability = nan\nshort = 1", "3:15",
       "above 0 and at"},
      {File, "[[fault]]\noperation = 'open'\nat = 1\nlose = false", "4:8", "true, or a table"},
      {File,
       "[[fault]]\noperation = 'read'\nat = '2-4'\nshort = 1\n"
       "[[fault]]\noperation = 'read'\nat = 4\nerrno = 'EIO'",
       "7:6", "the fault of line 1 strikes the same reads first"},
      // All at once, in order.
      {File, "[[fault]]\ny = 2\n[[client]]\nz = 3", "1:1", "\n:4:1: unknown key 'z'"},
      {kFault, "", "", "'=' is missing"},
      {kFault, "read:0=EIO", "", "counted from 1"},
      {kFault, "read:0x=EIO", "", "'0x' does not say which"},
      {kFault, "read:-1=EIO", "", "'-1' does not say which"},
      {kFault, "ioctl:1@kalo:3=EIO", "", "only read and write belong to a command"},
      {kFault, "read:1@kal0=EIO", "", "did you mean 'KALO'?"},
      {kFault, "read:5-4=EIO", "", "ends before it begins"},
      {kFault, "read:99999999999999999999=EIO", "", "up to 4294967295"},
      {kShort, "ioctl:1=3", "", "only read and write"},
      {kLoss, "read:1,", "", "'' is not part of a loss; opens=N"},
      {kClient, "kalo:max=1048577", "", "0 to 1048576"},
      {kReply, "kalo:1=body:abc", "", "even number"},
      {kReply, "kalo:1=private:", "", "even number"},
      {kReply, "kalo:1=latency:5", "", "'1.5ms'"},
      {kReply, "kalo:1=latency:61s", "", "up to a minute"},
      {kReply, "kalo:1=silent,status:1", "", "leave out"},
      {kReply, "kalo:1=status:-1,private:0011", "", "16 bytes, not 2; 'unusual' says that it is"},
      {kReply, "kalo:1=private:00112233445566778899aabbccddeeff", "", "a negative status alone"},
  };
  for (const auto& each : cases) {
    const std::string said = each.read(each.text);
    EXPECT_THAT(said, StartsWith(std::string(":") + each.place)) << each.text;
    EXPECT_THAT(said, HasSubstr(each.message)) << each.text;
  }
}

}  // namespace
}  // namespace zulisim
