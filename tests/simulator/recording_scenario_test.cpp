#include "simulator/record/recording_scenario.h"

#include <gtest/gtest.h>

#include "simulator/engine/engine.h"
#include "simulator/scenario/scenario_file.h"
#include "tests/simulator/random_driver.h"

namespace zulisim {
namespace {

std::string RandomScenario(unsigned seed) {
  std::mt19937 random(seed);
  const auto draw = [&random](unsigned count) { return static_cast<unsigned>(random() % count); };
  constexpr const char* kOperations[] = {"read", "write", "ioctl", "open", "close"};
  constexpr const char* kFaults[] = {"short = 3",
                                     "short = 20",
                                     "errno = \"EIO\"",
                                     "errno = \"EAGAIN\"",
                                     "errno = \"ENODEV\"",
                                     "errno = \"EBADF\"",
                                     "lose = true",
                                     "lose = { opens = 2, drop-replies = false }",
                                     "lose = { opens = 1, errno = \"EIO\", drop-replies = true }",
                                     "lose = { opens = 0, drop-replies = true }"};
  constexpr const char* kReplies[] = {
      "", "silent = true", "status = 3\nbody = \"0102030405\"",
      "status = -5\nprivate = \"00112233445566778899aabbccddeeff\""};
  std::string text;
  for (unsigned count = 1 + draw(5); count > 0; --count) {
    const unsigned fault = draw(10);
    text += common::Format("[[fault]]\noperation = \"{}\"\nat = {}\n{}\n",
                           kOperations[draw(fault < 2 ? 2 : 5)], 1 + 8 * count + draw(8),
                           kFaults[fault]);
  }
  for (unsigned command = 0x10; command < 0x13; ++command) {
    const unsigned first = 1 + draw(4);
    text += common::Format("[[reply]]\nclient = \"KALO\"\ncommand = {}\nat = \"{}-{}\"\n{}\n",
                           command, first, first + draw(5), kReplies[draw(4)]);
  }
  return text;
}

// Returns the results of two drivers on an engine with the scenario. Stores the recording.
std::vector<std::string> RunScenario(const std::string& text, unsigned seed, Recording* recording) {
  Scenario scenario;
  const auto diagnostics = ReadScenario(text, "scenario", &scenario);
  EXPECT_TRUE(diagnostics.empty()) << diagnostics.front().message << text;
  Engine engine({scenario.clients, true});
  Apply(scenario, &engine);
  std::vector<std::string> got = RunDrivers(&engine, 2, seed, seed);
  recording->header.clients = scenario.clients;
  recording->operations = engine.Records();
  return got;
}

TEST(RecordingScenarioTest, reproduces_what_random_faults_did_or_refuses) {
  int refused = 0;
  for (unsigned seed = 1; seed <= 500; ++seed) {
    const std::string faults = RandomScenario(seed);
    Recording recording, again;
    const std::vector<std::string> before = RunScenario(faults, seed, &recording);
    std::string scenario;
    try {
      scenario = ScenarioOf(recording, "recording");
    } catch (const common::InputError&) {
      ++refused;
      continue;
    }
    ASSERT_EQ(RunScenario(scenario, seed, &again), before) << faults << scenario;
  }
  EXPECT_LE(refused, 10);  // a loss at a close, whose reply then went to another connection
}

}  // namespace
}  // namespace zulisim
