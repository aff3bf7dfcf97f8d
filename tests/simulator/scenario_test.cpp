#include "simulator/scenario/scenario.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>

#include "simulator/scenario/scenario_file.h"

namespace zulisim {
namespace {

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
[[fault]]
operation = "write"
at = 1
lose = { opens = "all", errno = "EACCES", drop-replies = true }
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

  // A probability selects the same operations in every run, and different ones for each fault.
  std::size_t count = 0;
  std::size_t differs = 0;
  for (std::uint64_t i = 1; i <= 4000; ++i) {
    const bool applies = scenario.faults.at(0).AppliesTo(Operation::kRead, i);
    count += applies ? 1 : 0;
    differs += applies != scenario.faults.at(1).AppliesTo(Operation::kRead, i) ? 1 : 0;
  }
  EXPECT_NEAR(static_cast<double>(count), 1000, 100);
  EXPECT_NEAR(static_cast<double>(differs), 1500, 150);

  // The device stays lost until 'back'.
  Engine engine({scenario.clients});
  Apply(scenario, &engine);
  EXPECT_EQ(engine.Open(O_RDWR, 0, -1).value, 1);
  EXPECT_EQ(engine.Write(1, "", 1).error, ENODEV);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(engine.Open(O_RDWR, 0, -1).error, EACCES);
  engine.RestoreDevice();
  EXPECT_EQ(engine.Open(O_RDWR, 0, -1).value, 2);
}

}  // namespace
}  // namespace zulisim
