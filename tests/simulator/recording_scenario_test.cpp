#include "simulator/record/recording_scenario.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <random>

#include "common/format.h"
#include "simulator/engine/engine.h"
#include "simulator/scenario/scenario_file.h"

namespace zulisim {
namespace {

// Runs a driver with two connections that reads replies and private data, repeats requests, and
// reconnects. `seed` and the device's results determine its next steps. Returns all results.
std::string Drive(Device* device, unsigned seed) {
  std::mt19937 random(seed);
  const auto draw = [&random](unsigned count) { return static_cast<unsigned>(random() % count); };
  std::string got;
  const auto keep = [&got](const Result& result, const Bytes& bytes = {}) {
    got += common::Format("{}/{} {}\n", result.value, result.error, common::HexDigits(bytes));
    return result.error == 0;
  };
  const auto clients = DefaultClients();
  struct {
    std::uint64_t number = 0;
    bool connected = false;
  } connections[2];
  for (int step = 0; step < 24; ++step) {
    const unsigned which = draw(2);
    auto* connection = &connections[which];
    if (connection->number == 0) {
      const Result opened = device->Open(O_RDWR, 0, -1);
      if (!keep(opened)) continue;
      connection->number = static_cast<std::uint64_t>(opened.value);
    }
    if (!connection->connected) {
      Guid guid = clients[draw(4) == 0 ? 1 - which : which].guid;
      const Result result = device->Ioctl(connection->number, kConnectRequest, guid.data());
      connection->connected = keep(result, {guid.begin(), guid.end()});
    }
    Bytes request(16 + 4 * draw(4), 0);
    SetWordAt(&request, 0, draw(3));
    SetWordAt(&request, kCommandIdOffset, 0x10 + draw(3));
    if (request.size() > kHeaderSize) request.back() = static_cast<std::uint8_t>(draw(256));
    bool good = true;
    if (draw(8) != 0) {
      good = keep(device->Write(connection->number, request.data(), request.size()));
    }
    for (unsigned reads = draw(4); good && reads > 0; --reads) {
      Bytes reply(draw(6) == 0 ? draw(32) : 64, 0);
      const Result result = device->Read(connection->number, reply.data(), reply.size(), false);
      good = keep(result, reply) || draw(2) == 0;
    }
    if (!good || draw(12) == 0) {
      keep(device->Close(connection->number, CloseReason::kProgramClosed));
      *connection = {};
    }
  }
  return got;
}

// Returns a random scenario file.
std::string RandomFaults(unsigned seed) {
  std::mt19937 random(seed);
  const auto draw = [&random](unsigned count) { return static_cast<unsigned>(random() % count); };
  const char* const operations[] = {"read", "write", "ioctl", "open", "close"};
  const char* const errors[] = {"EIO", "EAGAIN", "ENODEV", "EBADF", "EINTR", "ENOENT"};
  std::string text;
  for (unsigned count = 1 + draw(5); count > 0; --count) {
    const unsigned kind = draw(3);
    text += common::Format("[[fault]]\noperation = \"{}\"\nat = {}\n",
                           operations[kind == 1 ? draw(2) : draw(5)], 1 + 8 * count + draw(8));
    if (kind == 0) text += common::Format("errno = \"{}\"\n", errors[draw(6)]);
    if (kind == 1) text += common::Format("short = {}\n", draw(24));
    if (kind == 2 && draw(2) == 0)
      text += "lose = true\n";
    else if (kind == 2)
      text += common::Format("lose = {{ opens = {}, drop-replies = {} }}\n", draw(3), draw(2) == 0);
  }
  for (unsigned command = 0x10; command < 0x13; ++command) {
    const unsigned first = 1 + draw(4);
    const std::string head =
        common::Format("[[reply]]\nclient = \"KALO\"\ncommand = {}\nat = \"{}-{}\"\n", command,
                       first, first + draw(5));
    switch (draw(4)) {
      case 0:
        text += head + "silent = true\n";
        break;
      case 1:
        text += head + "status = 3\nbody = \"0102030405\"\n";
        break;
      case 2:
        text += head + "status = -5\nprivate = \"00112233445566778899aabbccddeeff\"\n";
        break;
      default:
        break;
    }
  }
  return text;
}

// Runs the driver on an engine with the scenario. Returns its results, and the recording in
// `recording`.
std::string RunDriver(const std::string& text, unsigned seed, Recording* recording) {
  Scenario scenario;
  const auto diagnostics = ReadScenario(text, "scenario", &scenario);
  EXPECT_TRUE(diagnostics.empty()) << diagnostics.front().message << text;
  Engine engine({scenario.clients, true});
  Apply(scenario, &engine);
  const std::string got = Drive(&engine, seed);
  recording->header.clients = scenario.clients;
  recording->operations = engine.Records();
  return got;
}

TEST(RecordingScenarioTest, reproduces_what_random_faults_did_or_refuses) {
  int refused = 0;
  for (unsigned seed = 1; seed <= 500; ++seed) {
    const std::string faults = RandomFaults(seed);
    Recording recording;
    const std::string before = RunDriver(faults, seed, &recording);
    std::string scenario;
    try {
      scenario = ScenarioOf(recording, "recording");
    } catch (const common::InputError&) {
      ++refused;
      continue;
    }
    Recording again;
    ASSERT_EQ(RunDriver(scenario, seed, &again), before) << faults << scenario;
  }
  EXPECT_LE(refused, 10);  // a loss at a close, whose reply then went to another connection
}

TEST(RecordingScenarioTest, names_the_operation_that_a_scenario_cannot_express) {
  const std::string head =
      "{\"format\":\"zulisim recording\",\"version\":2}\n"
      "{\"operation\":\"open\",\"connection\":1,\"flags\":\"O_RDWR\",\"result\":0}\n";
  const auto refusal = [&head](const std::string& line) {
    try {
      return ScenarioOf(ParseRecording(head + line), "r");
    } catch (const common::InputError& error) {
      return std::string(error.what());
    }
  };
  EXPECT_EQ(refusal(R"({"operation":"ioctl","connection":1,"request":"0x4804","result":0})"),
            "cannot make a scenario from 'r': operation 2 (line 3, ioctl) gave a success, and the "
            "software engine can only give ENOTTY; use 'zulisim replay' for this recording");
}

}  // namespace
}  // namespace zulisim
