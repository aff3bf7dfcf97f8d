#include "simulator/scenario_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "simulator/engine.h"

namespace zulisim {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kWhole = R"(
seed = 5
[[client]]
name = "probe"
guid = "{00112233-4455-6677-8899-AABBCCDDEEFF}"
max = 0x100
[[reply]]
client = "PROBE"
command = 0x10
status = -2
body-file = "body"
private = "00 11"
latency = "30ms"
[[fault]]
operation = "write"
at = "3-"
lose = { opens = 2, errno = "enoent", drop-replies = true }
[[fault]]
operation = "read"
probability = 0.25
errno = "EIO"
)";

class ScenarioFileTest : public testing::Test {
 protected:
  ScenarioFileTest() {
    char path[] = "/tmp/scenario_file_test.XXXXXX";
    folder = mkdtemp(path);
    std::ofstream(folder + "/body") << "body";
  }
  ~ScenarioFileTest() override { std::filesystem::remove_all(folder); }

  std::string folder;
};

TEST_F(ScenarioFileTest, fills_a_scenario_that_an_engine_obeys) {
  Scenario scenario;
  ASSERT_TRUE(ReadScenario(kWhole, folder, &scenario).empty());
  ASSERT_EQ(scenario.faults.size(), 2u);
  EXPECT_EQ(scenario.faults[0].times, kForever);
  EXPECT_FALSE(std::get<DeviceLoss>(scenario.faults[0].effect).keepReplies);
  scenario.faults.pop_back();

  Engine engine({scenario.clients, true});
  Apply(scenario, &engine);
  Guid guid = scenario.clients.at(3).guid;
  EXPECT_EQ(GuidText(guid), "{00112233-4455-6677-8899-AABBCCDDEEFF}");
  engine.Open(2, 0, 7);
  engine.Ioctl(1, kConnectRequest, guid.data());
  EXPECT_EQ(guid[0] + guid[1], 1);
  Bytes message(24, 0);
  message[kCommandIdOffset] = 0x10;
  engine.Write(1, message.data(), message.size());
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(engine.Read(1, message.data(), message.size()).value, 20);
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(20));
  EXPECT_EQ(WordAt(message, kStatusOffset), 0xfffffffeu);
  EXPECT_EQ(message[16], 'b');
  EXPECT_EQ(engine.Read(1, message.data(), message.size()).value, 2);

  // A read that waits for a late reply ends with the connection.
  engine.SetResponder("probe", [](const Bytes& request) {
    Reply reply = EchoReply(request);
    reply.latency = std::chrono::minutes(1);
    return reply;
  });
  message[kCommandIdOffset] = 0x11;
  engine.Write(1, message.data(), message.size());
  std::thread reader([&] { EXPECT_EQ(engine.Read(1, message.data(), 4).error, EBADF); });
  while (engine.Count(Operation::kRead) < 3) std::this_thread::yield();
  engine.Release(1);
  reader.join();
}

TEST_F(ScenarioFileTest, lets_chance_strike_the_same_operations_in_every_run) {
  Scenario scenario;
  ASSERT_TRUE(ReadScenario(kWhole, folder, &scenario).empty());
  Scenario other = scenario;
  other.faults[1].seed += 1;
  std::size_t struck = 0;
  std::size_t differs = 0;
  for (std::uint64_t i = 1; i <= 4000; ++i) {
    const bool strikes = scenario.faults[1].Strikes(Operation::kRead, i);
    EXPECT_EQ(strikes, Fault(scenario.faults[1]).Strikes(Operation::kRead, i));
    struck += strikes ? 1 : 0;
    differs += strikes != other.faults[1].Strikes(Operation::kRead, i) ? 1 : 0;
  }
  EXPECT_NEAR(static_cast<double>(struck), 1000, 100);
  EXPECT_GT(differs, 1000u);
}

TEST_F(ScenarioFileTest, names_each_mistake_with_its_place_and_what_would_be_right) {
  const struct {
    const char* text;
    const char* place;
    const char* message;
  } cases[] = {
      {"a = ", "1:", "no TOML"},
      {"about = \"\"\"\xc3\xa9\"\"\"\"\nseed = \xc3\xa9", "2:8", "needs quotes around it"},
      {"sede = 1", "1:1", "unknown key 'sede' in a scenario; did you mean 'seed'?"},
      {"about = 1", "1:9", "'about' of a scenario is a text, not an integer"},
      {"reply = 1", "1:9", "write [[reply]]"},
      {"[[client]]\nmax = 1", "1:1", "needs a 'name'"},
      {"[[client]]\nname = 'KALA'", "2:8", "new and needs a 'guid'; did you mean 'KALO'?"},
      {"[[client]]\nname = 'x'\nguid = '{12}'", "3:8", "'{12}' is no GUID"},
      {"[[client]]\nname = 'SAB'\nguid = 'FBF6FCF196CF4E2EA6A61BAB8CBE36B1'", "3:8", "'KALO'"},
      {"[[client]]\nname = 'KALO'\nmax = 2000000", "3:7", "from 0 to 1048576, not 2000000"},
      {"[[client]]\nname = 'KALO'\n[[client]]\nname = 'KALO'", "4:8", "line 1 already"},
      {"[[reply]]\nstatus = 0", "1:1", "a reply needs a 'client'"},
      {"[[reply]]\nclient = 'KAL0'", "2:10", "known are KALO, FENU, SAB; did you mean 'KALO'?"},
      {"[[reply]]\nclient = 'SAB'\nstauts = 1", "3:1", "did you mean 'status'?"},
      {"[[reply]]\nclient = 'SAB'\nbody = 'abc'", "3:8", "an even number of hexadecimal digits"},
      {"[[reply]]\nclient = 'SAB'\nbody-file = 'none'", "3:13", "cannot be read"},
      {"[[reply]]\nclient = 'SAB'\nbody-file = '/dev/zero'", "3:13", "no regular file"},
      {"[[reply]]\nclient = 'SAB'\nlatency = '5'", "3:11", "'1.5ms'"},
      {"[[reply]]\nclient = 'SAB'\nlatency = '61s'", "3:11", "up to a minute"},
      {"[[reply]]\nclient = 'SAB'\nsilent = true\nstatus = 1", "4:10", "sends nothing"},
      {"[[reply]]\nclient = 'SAB'\n[[reply]]\nclient = 'sab'", "3:1", "line 1 tells SAB already"},
      {"[[fault]]\nerrno = 'EIO'\nat = 1", "1:1", "needs an 'operation'"},
      {"[[fault]]\noperation = 'raed'\nat = 1\nshort = 1", "2:13", "did you mean 'read'?"},
      {"[[fault]]\noperation = 'read'\nshort = 1", "1:1", "needs an 'at'"},
      {"[[fault]]\noperation = 'read'\nat = 0\nshort = 1", "3:6", "from 1 to"},
      {"[[fault]]\noperation = 'read'\nat = '5-4'\nshort = 1", "3:6", "ends before it begins"},
      {"[[fault]]\noperation = 'read'\nat = 1.5\nshort = 1", "3:6", "not a number with a point"},
      {"[[fault]]\noperation = 'read'\nat = 1", "1:1", "one of 'errno', 'short' and 'lose'"},
      {"[[fault]]\noperation = 'read'\nat = 1\nerrno = 'EOI'", "4:9", "did you mean 'EIO'?"},
      {"[[fault]]\noperation = 'read'\nprobability = nan\nshort = 1", "1:1",
       "above 0 and at most 1"},
      {"[[fault]]\noperation = 'open'\nat = 1\nshort = 1", "1:1", "only read and write"},
      {"[[fault]]\noperation = 'open'\nat = 1\nlose = { open = 1 }", "4:10",
       "did you mean 'opens'?"},
      {"[[fault]]\noperation = 'open'\nat = 1\nlose = false", "4:8", "'lose' is true, or a table"},
      {"[[fault]]\noperation = 'read'\nat = '2-4'\nshort = 1\n"
       "[[fault]]\noperation = 'read'\nat = 4\nerrno = 'EIO'",
       "7:6", "the fault of line 1 strikes the same reads first"},
  };
  for (const auto& each : cases) {
    Scenario scenario;
    const auto diagnostics = ReadScenario(each.text, folder, &scenario);
    ASSERT_EQ(diagnostics.size(), 1u) << each.text;
    const std::string text = DiagnosticText("f", diagnostics[0]);
    EXPECT_THAT(text, StartsWith(std::string("f:") + each.place)) << each.text;
    EXPECT_THAT(text, HasSubstr(each.message)) << each.text;
    EXPECT_TRUE(scenario.faults.empty() && scenario.replies.empty()) << each.text;
  }
  // All at once, in order.
  Scenario scenario;
  EXPECT_EQ(ReadScenario("x = 1\n[[fault]]\ny = 2\n[[client]]\nz = 3", folder, &scenario).size(),
            7u);
}

}  // namespace
}  // namespace zulisim
