#include "simulator/record/recording.h"

#include "common/format.h"
#include "common/hex.h"
#include "simulator/engine/engine.h"
#include "simulator/record/recorder.h"
#include "simulator/record/recording_scenario.h"
#include "simulator/record/replay_device.h"
#include "simulator/scenario/scenario_file.h"
#include "tests/support/standard_headers.h"

namespace zulisim {
namespace {

// A recording with two connections and every form of an operation.
constexpr const char* kText =
    R"({"format":"zulisim recording","version":2,"tool":"t","started":"s","program":["a\nb"],"clients":[{"name":"KALO","guid":"{FBF6FCF1-96CF-4E2E-A6A6-1BAB8CBE36B1}"}]}
{"number":1,"start_ns":1,"duration_ns":1,"process":7,"thread":8,"connection":1,"operation":"open","flags":"O_RDWR|O_CLOEXEC","result":0}
{"number":2,"start_ns":1500000002,"duration_ns":1,"connection":2,"operation":"open","flags":"O_RDWR|O_CREAT","result":0}
{"number":3,"start_ns":3,"duration_ns":1,"connection":1,"operation":"write","length":4,"input":"61616161","result":4}
{"number":4,"start_ns":4,"duration_ns":1,"connection":2,"operation":"write","length":4,"input":"62626262","result":-1,"errno":"ENODEV","note":"the device is lost at write 2"}
{"number":5,"start_ns":5,"duration_ns":1,"connection":1,"operation":"read","length":8,"result":2,"output":"6869"}
{"number":6,"start_ns":6,"duration_ns":1,"connection":1,"operation":"read","length":8,"null":true,"result":-1,"errno":"EFAULT"}
{"number":7,"start_ns":7,"duration_ns":1,"operation":"open","flags":"O_WRONLY","result":-1,"errno":"134"}
{"number":8,"start_ns":8,"duration_ns":1,"connection":2,"client":"KALO","operation":"ioctl","request":"0xc0104801","input":"f1fcf6fbcf962e4ea6a61bab8cbe36b1","result":3,"output":"0010000001000000a6a61bab8cbe36b1"}
{"number":9,"start_ns":9,"duration_ns":1,"connection":1,"operation":"close","result":0}
{"number":10,"start_ns":10,"duration_ns":1,"connection":2,"client":"KALO","operation":"close","abandoned":true,"result":0}
{"complete":true}
)";

// A thread of a program, with one connection at a time. The seed, the number and the device's
// results determine its calls. Drivers with the same seed begin with the same calls.
struct RandomDriver {
  Device* const device;
  const unsigned seed;
  const int number;
  std::mt19937 random{seed};
  int steps = 0;
  std::uint64_t connection = 0;
  bool connected = false;
  std::string got = "";  // the results of all calls

  // Makes one call.
  void Step() {
    SetCaller(1, number);
    if (++steps == 6) random.seed(seed * 100 + static_cast<unsigned>(number));
    Result result;
    Bytes bytes;
    if (connection == 0) {
      result = device->Open(O_RDWR, 0, -1);
      connection = static_cast<std::uint64_t>(std::max<std::int64_t>(result.value, 0));
      result.value = 0;  // depends on the other drivers
      connected = false;
    } else if (Draw(8) == 0) {
      result = device->Close(connection, CloseReason::kProgramClosed);
      connection = 0;
    } else if (!connected) {
      Guid guid = DefaultClients()[Draw(2)].guid;
      result = device->Ioctl(connection, kConnectRequest, guid.data());
      bytes.assign(guid.begin(), guid.end());
      connected = result.error == 0;
    } else if (Draw(5) < 2) {
      bytes.assign(16 + 4 * Draw(4), static_cast<std::uint8_t>(Draw(256)));
      SetWordAt(&bytes, kCommandIdOffset, 0x10 + Draw(3));
      result = device->Write(connection, bytes.data(), bytes.size());
    } else {
      bytes.resize(Draw(6) == 0 ? Draw(32) : 64);
      result = device->Read(connection, bytes.data(), bytes.size(), false);
    }
    got += common::Format("{}/{} {}\n", result.value, result.error, common::HexDigits(bytes));
  }
  unsigned Draw(unsigned count) { return static_cast<unsigned>(random() % count); }
};

constexpr unsigned kThreads = 0;

// Runs `count` drivers, which take their steps in an order that `order` determines, or in a thread
// each. Returns the results of one after the other.
std::string RunDrivers(Device* device, int count, unsigned seed, unsigned order) {
  std::vector<RandomDriver> drivers;
  std::vector<std::size_t> turns;
  for (int number = 1; number <= count; ++number) {
    turns.insert(turns.end(), 24, drivers.size());
    drivers.push_back({device, seed, number});
  }
  std::shuffle(turns.begin(), turns.end(), std::mt19937(order));
  const auto step = [&drivers](std::size_t turn) { drivers[turn].Step(); };
  if (order != kThreads) {
    std::for_each(turns.begin(), turns.end(), step);
  } else {
    std::vector<std::future<void>> threads;
    for (std::size_t turn = 0; turn < drivers.size(); ++turn) {
      threads.push_back(std::async(std::launch::async, [=] {
        for (int i = 0; i < 24; ++i) step(turn);
      }));
    }
    for (const std::future<void>& thread : threads) thread.wait();
  }
  std::string got;
  for (const RandomDriver& driver : drivers) got += driver.got + "\n";
  return got;
}

std::string Written(const Recording& recording) {
  std::string text = HeaderLine(recording.header);
  for (const OperationRecord& each : recording.operations) text += OperationLine(each);
  return text + kCompleteLine;
}

TEST(RecordingTest, reads_what_it_writes_up_to_a_cut) {
  const std::string whole = kText;
  const Recording recording = ParseRecording(whole);
  EXPECT_EQ(Written(recording), whole);
  std::size_t most = 0;
  for (std::size_t length = whole.find('\n') + 1; length < whole.size() - 1; length += 3) {
    const Recording cut = ParseRecording(whole.substr(0, length));
    ASSERT_TRUE(cut.cut) << length;
    ASSERT_GE(cut.operations.size(), most) << length;
    most = cut.operations.size();
  }
  EXPECT_EQ(most, 10u);
}

RecordingSink AppendTo(std::string* text) {
  return [text](const std::string& line) { *text += line; };
}

TEST(RecordingTest, replays_threads_in_any_order) {
  for (unsigned seed = 1; seed <= 40; ++seed) {
    const int count = 2 + static_cast<int>(seed % 3) * 3;
    std::string text, recorded;
    Engine engine;
    {
      const Recorder recorder(&engine, AppendTo(&text), {});
      recorded = RunDrivers(&engine, count, seed, seed);
    }
    EXPECT_EQ(ParseRecording(text).header.started.size(), 27u);
    ReplayDevice cut(ParseRecording(text.substr(0, text.size() / 2)));
    RunDrivers(&cut, count, seed, seed);
    EXPECT_TRUE(cut.ReachedCut()) << cut.Divergence();
    for (const unsigned order : {1000 + seed, kThreads}) {
      std::string replayed;
      ReplayDevice device(ParseRecording(text));
      {
        const Recorder recorder(&device, AppendTo(&replayed), {});
        EXPECT_EQ(RunDrivers(&device, count, seed, order), recorded);
      }
      device.End();
      ASSERT_EQ(device.Divergence(), "") << text;
      EXPECT_EQ(Written(ParseRecording(replayed)), replayed);
    }
  }
}

Scenario ParseScenario(const std::string& text) {
  Scenario scenario;
  EXPECT_TRUE(ReadScenario(text, "scenario", &scenario).empty()) << text;
  return scenario;
}

// Returns a scenario with each kind of fault for each operation. The seed determines which happen.
Scenario RandomScenario(unsigned seed) {
  Scenario scenario = ParseScenario(R"(reply = [
    {client = "KALO", command = 0x10, at = "2-4", silent = true},
    {client = "KALO", command = 0x11, at = "1-2", status = 3, body = "0102030405"},
    {client = "KALO", command = 0x11, status = -5, private = "00112233445566778899aabbccddeeff"},
    {client = "KALO", command = 0x12, at = "2-3", status = -5, private = "00", unusual = true},
    {client = "KALO", command = 0x12, status = 5, private = "000102030405060708090a0b0c0d0e0f", unusual = true}])");
  for (std::size_t operation = 0; operation < kOperationCount; ++operation) {
    for (const FaultEffect& effect : std::initializer_list<FaultEffect>{
             ShortCount{3}, ShortCount{20}, ErrnoFault{EIO}, ErrnoFault{EAGAIN}, ErrnoFault{ENODEV},
             ErrnoFault{EBADF}, DeviceLoss{}, DeviceLoss{2}, DeviceLoss{0, ENODEV, true},
             DeviceLoss{1, EIO}}) {
      Fault fault{static_cast<Operation>(operation), effect, {1, kForever}, 0.01};
      fault.seed = 1000 * seed + scenario.faults.size();
      if (!FaultError(fault)) scenario.faults.push_back(fault);
    }
  }
  return scenario;
}

// Returns the results of two drivers on an engine with the scenario. Stores the recording.
std::string RunScenario(const Scenario& scenario, unsigned seed, Recording* recording) {
  Engine engine({scenario.clients, true});
  Apply(scenario, &engine);
  const std::string got = RunDrivers(&engine, 2, seed, seed);
  recording->header.clients = scenario.clients;
  recording->operations = engine.Records();
  return got;
}

TEST(RecordingScenarioTest, reproduces_what_random_faults_did_or_refuses) {
  int refused = 0;
  for (unsigned seed = 1; seed <= 500; ++seed) {
    Recording recording;
    const std::string before = RunScenario(RandomScenario(seed), seed, &recording);
    try {
      const std::string made = ScenarioOf(recording, "recording");
      ASSERT_EQ(RunScenario(ParseScenario(made), seed, &recording), before) << seed << made;
    } catch (const common::InputError&) {
      ++refused;
    }
  }
  EXPECT_LE(refused, 5);  // a loss at a close, whose reply then went to another connection
}

}  // namespace
}  // namespace zulisim
