#include "simulator/scenario_options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace zulisim {
namespace {

using testing::HasSubstr;
using Parser = void (*)(const std::string&, Scenario*);

TEST(ScenarioOptionsTest, fill_a_scenario_that_an_engine_obeys) {
  Scenario scenario;
  AddClientOption("fenu:max=0x2000,version=7", &scenario);
  AddReplyOption("kalo:0x10=status:0x80000001,body:beef,private:0011", &scenario);
  AddReplyOption("KALO:*=silent", &scenario);
  AddFaultOption("write:3=EIO", &scenario);
  AddFaultOption("write:5-=eio", &scenario);
  AddShortOption("read:4-6=8", &scenario);
  AddLossOption("close:2,opens=3,errno=ENOENT,drop-replies", &scenario);

  EXPECT_EQ(scenario.clients[1].maxMessageLength, 0x2000u);
  EXPECT_EQ(scenario.clients[1].protocolVersion, 7);
  ASSERT_EQ(scenario.faults.size(), 4u);
  EXPECT_EQ(scenario.faults[1].times, kForever);
  EXPECT_EQ(scenario.faults[2].first, 4u);
  EXPECT_EQ(scenario.faults[2].times, 3u);
  const DeviceLoss loss = std::get<DeviceLoss>(scenario.faults[3].effect);
  EXPECT_EQ(loss.failingOpens, 3u);
  EXPECT_EQ(loss.openError, ENOENT);
  EXPECT_FALSE(loss.keepReplies);

  Engine engine({scenario.clients, true});
  Apply(scenario, &engine);
  Guid guid = scenario.clients[0].guid;
  engine.Open(2, 0, 7);
  engine.Ioctl(1, kConnectRequest, guid.data());
  Bytes request(24, 1);
  SetWordAt(&request, kCommandIdOffset, 0x10);
  engine.Write(1, request.data(), request.size());
  EXPECT_EQ(engine.Read(1, request.data(), request.size()).value, 18);
  EXPECT_EQ(WordAt(request, kStatusOffset), 0x80000001u);
  EXPECT_EQ(request[16], 0xbe);
  EXPECT_EQ(engine.Read(1, request.data(), request.size()).value, 2);
  SetWordAt(&request, kCommandIdOffset, 0x11);
  engine.Write(1, request.data(), request.size());
  EXPECT_EQ(engine.Read(1, request.data(), request.size()).error, EAGAIN);
  EXPECT_EQ(engine.Write(1, request.data(), request.size()).error, EIO);
}

TEST(ScenarioOptionsTest, name_each_mistake_and_leave_the_scenario_alone) {
  const struct {
    Parser parse;
    const char* text;
    const char* message;
  } cases[] = {
      {AddFaultOption, "", "'=' is missing"},
      {AddFaultOption, "red:3=EIO", "'red' is no operation; open, ioctl"},
      {AddFaultOption, "read=EIO", "which read is missing"},
      {AddFaultOption, "read:=EIO", "not ''"},
      {AddFaultOption, "read:0=EIO", "counted from 1"},
      {AddFaultOption, "read:0x=EIO", "not '0x'"},
      {AddFaultOption, "read:-3=EIO", "not ''"},
      {AddFaultOption, "read:5-4=EIO", "ends before it begins"},
      {AddFaultOption, "read:99999999999999999999=EIO", "0 to 4294967295"},
      {AddFaultOption, "read:1=EFOO", "'EFOO' is no errno"},
      {AddShortOption, "ioctl:1=3", "only read and write"},
      {AddShortOption, "read:1=3x", "'3x'"},
      {AddLossOption, "read:1,open=3", "opens=N"},
      {AddLossOption, "read:1,", "'' is no part of a loss"},
      {AddClientOption, "kalo", "what to set is missing"},
      {AddClientOption, "kalo:max=1048577", "0 to 1048576"},
      {AddClientOption, "kalo:version=256", "0 to 255"},
      {AddReplyOption, "sap:1=status:0", "known are KALO, FENU, SAB"},
      {AddReplyOption, "kalo=status:0", "the command is missing"},
      {AddReplyOption, "kalo:1=body:abc", "even number"},
      {AddReplyOption, "kalo:1=private:", "even number"},
      {AddReplyOption, "kalo:1=stat:0", "'stat:0' is no part of a reply"},
      {AddReplyOption, "kalo:1=silent,status:1", "leave out"},
  };
  for (const auto& each : cases) {
    Scenario scenario;
    try {
      each.parse(each.text, &scenario);
      ADD_FAILURE() << each.text << " was taken";
    } catch (const std::invalid_argument& error) {
      EXPECT_THAT(error.what(), HasSubstr(each.message)) << each.text;
    }
    EXPECT_TRUE(scenario.faults.empty() && scenario.replies.empty()) << each.text;
  }
}

}  // namespace
}  // namespace zulisim
