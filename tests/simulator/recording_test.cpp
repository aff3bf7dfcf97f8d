#include "simulator/record/recording.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <functional>

#include "simulator/engine/engine.h"
#include "simulator/record/recorder.h"
#include "simulator/record/replay_device.h"
#include "tests/simulator/random_driver.h"

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
{"number":7,"start_ns":7,"duration_ns":1,"operation":"open","flags":"O_WRONLY","result":-1,"errno":"600"}
{"number":8,"start_ns":8,"duration_ns":1,"connection":2,"client":"KALO","operation":"ioctl","request":"0xc0104801","input":"f1fcf6fbcf962e4ea6a61bab8cbe36b1","result":0,"output":"0010000001000000a6a61bab8cbe36b1"}
{"number":9,"start_ns":9,"duration_ns":1,"connection":1,"operation":"close","result":0}
{"number":10,"start_ns":10,"duration_ns":1,"connection":2,"client":"KALO","operation":"close","abandoned":true,"result":0}
{"complete":true}
)";

// Replays the recording `text` to `program`. Returns the error in the text, or the program's first
// difference from the recording.
std::string ReplayError(const std::string& text,
                        const std::function<void(ReplayDevice*)>& program) {
  try {
    ReplayDevice device(ParseRecording(text));
    program(&device);
    device.End();
    return device.Divergence();
  } catch (const RecordingError& error) {
    return common::DiagnosticText("", error.diagnostic);
  }
}

TEST(RecordingTest, reads_what_it_writes) {
  const Recording recording = ParseRecording(kText);
  std::string text = HeaderLine(recording.header);
  for (const OperationRecord& each : recording.operations) text += OperationLine(each);
  EXPECT_EQ(text + kCompleteLine, kText);
}

TEST(RecordingTest, reports_only_the_first_divergence) {
  const auto open_both = [](ReplayDevice* device) {
    for (int i = 0; i < 2; ++i) EXPECT_EQ(device->Open(O_RDWR, 0, -1).error, 0);
  };
  const auto diverge = [&](ReplayDevice* device) {
    open_both(device);
    EXPECT_EQ(device->Write(1, "axaac", 5).error, ENODEV);
    EXPECT_EQ(device->Write(2, "bbbb", 4).error, ENODEV);
    EXPECT_EQ(device->Open(O_WRONLY, 0, 5).error, ENODEV);
    EXPECT_EQ(device->Close(1, CloseReason::kProgramClosed).value, 0);
  };
  EXPECT_EQ(ReplayError(kText, diverge),
            "at operation 3 (line 4) on connection #1\n"
            "  expected  write 4 bytes\n  got       write 5 bytes\n"
            "    - 0000  61616161                             aaaa\n"
            "    + 0000  61786161 63                          axaac\n");
  EXPECT_EQ(ReplayError(kText, open_both),
            "at operation 3 (line 4) on connection #1\n"
            "  expected  write 4 bytes\n  got       the end of the program\n");
}

TEST(RecordingTest, keeps_every_operation_up_to_the_cut) {
  const std::string whole = kText;
  std::size_t most = 0;
  for (std::size_t length = whole.find('\n') + 1; length < whole.size() - 1; length += 3) {
    const Recording recording = ParseRecording(whole.substr(0, length));
    ASSERT_TRUE(recording.cut) << length;
    ASSERT_GE(recording.operations.size(), most) << length;
    most = recording.operations.size();
  }
  EXPECT_EQ(most, 10u);
}

TEST(RecordingTest, replays_threads_in_any_order) {
  for (unsigned seed = 1; seed <= 40; ++seed) {
    const int count = 2 + static_cast<int>(seed % 3) * 3;
    std::string text;
    std::vector<std::string> recorded, replayed;
    Engine engine;
    {
      const Recorder recorder(&engine, [&text](const std::string& line) { text += line; }, {});
      recorded = RunDrivers(&engine, count, seed, seed);
    }
    const auto program = [&](ReplayDevice* device) {
      replayed = RunDrivers(device, count, seed, 1000 + seed);
    };
    ASSERT_EQ(ReplayError(text, program), "") << text;
    ASSERT_EQ(replayed, recorded) << text;
    const auto go_on = [&](ReplayDevice* device) {
      RunDrivers(device, count, seed, seed);
      device->Open(O_WRONLY, 0, 5);
    };
    ASSERT_EQ(ReplayError(text, go_on),
              "after its last operation\n"
              "  expected  the end of the program\n  got       open O_WRONLY\n");
  }
}

}  // namespace
}  // namespace zulisim
