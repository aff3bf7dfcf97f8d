#include "simulator/record/recording.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <functional>

#include "simulator/record/replay_device.h"

namespace zulisim {
namespace {

// Two connections, and every form of an operation.
constexpr const char* kText = R"(zulisim recording 1
# ./a?b #1 ?
client KALO {FBF6FCF1-96CF-4E2E-A6A6-1BAB8CBE36B1}

1  0.000000001  #1  open O_RDWR|O_CLOEXEC  -> ok  in 0.000000001
2  1.500000002  #2  open O_RDWR|O_CREAT mode 0644  -> ok  in 0.000000001
3  1.500000003  #1  write 4  -> 4  in 0.000000001
  > 61616161  # aaaa
4  1.500000004  #2  write 4  -> ENODEV  in 0.000000001  # the device is lost at write 2
  > 62626262  # bbbb
5  1.500000005  #1  read 8  -> 2  in 0.000000001
  < 6869  # hi
6  1.500000006  #1  read 8 null  -> EFAULT  in 0.000000001
7  1.500000007  -  open O_WRONLY  -> E600  in 0.000000001
8  1.500000008  #2  ioctl 0xc0104801  -> ok  in 0.000000001
  > f1fcf6fb cf962e4e a6a61bab 8cbe36b1  # .......N......6.
  < 00100000 01000000 a6a61bab 8cbe36b1  # ..............6.
9  1.500000009  #1  close  -> ok  in 0.000000001
10  1.500000010  #2  gone  -> ok  in 0.000000001
end
)";

// A program that does all of that, its connections the other way round; what it got.
std::string Perform(Device* device) {
  std::string got;
  const auto keep = [&got](const Result& result) {
    got += std::to_string(result.value) + "/" + std::to_string(result.error) + " ";
  };
  Guid guid = DefaultClients()[0].guid;
  char buffer[9] = {};
  keep(device->Open(O_RDWR, 0, -1));
  keep(device->Open(O_RDWR, 0, -1));
  keep(device->Write(1, "bbbb", 4));
  keep(device->Ioctl(1, kConnectRequest, guid.data()));
  keep(device->Write(2, "aaaa", 4));
  keep(device->Read(2, buffer, 8, false));
  keep(device->Read(2, nullptr, 8, false));
  keep(device->Open(O_WRONLY, 0, -1));
  device->Close(1, CloseReason::kProgramEnded);
  keep(device->Close(2, CloseReason::kProgramClosed));
  return got + buffer + " " + std::to_string(guid[1]);
}

// What is to be said of `text`, or of a program that meets the device's side of it.
std::string Verdict(const std::string& text, const std::function<void(ReplayDevice*)>& program) {
  try {
    ReplayDevice device(ParseRecording(text));
    program(&device);
    device.End();
    const auto divergence = device.FirstDivergence();
    return divergence ? DivergenceText(*divergence) : "";
  } catch (const RecordingError& error) {
    return common::DiagnosticText("", error.diagnostic());
  }
}

TEST(RecordingTest, reads_as_it_was_written_and_matches_connections_by_what_they_do_first) {
  const Recording recording = ParseRecording(kText);
  std::string text = RecordingHead({"./a\nb", "#1", "\x7f"}, recording.clients);
  std::uint64_t number = 0;
  for (const auto& each : recording.operations) text += RecordingEntry(++number, each.record);
  EXPECT_EQ(text + kRecordingEnd, kText);

  std::string got;
  EXPECT_EQ(Verdict(kText, [&got](ReplayDevice* device) { got = Perform(device); }), "");
  EXPECT_EQ(got, "1/0 2/0 -1/19 0/0 4/0 2/0 -1/14 -1/600 0/0 hi 16");
}

TEST(RecordingTest, reports_the_first_divergence_alone) {
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
  EXPECT_EQ(Verdict(kText, diverge),
            "at operation 3 (line 7) on connection #1\n"
            "  expected  write 4 bytes\n  got       write 5 bytes\n"
            "    - 0000  61616161  aaaa\n    + 0000  61786161 63  axaac\n");
  EXPECT_EQ(Verdict(kText, open_both),
            "at operation 3 (line 7) on connection #1\n"
            "  expected  write 4 bytes\n  got       the end of the program\n");
  const auto go_on = [](ReplayDevice* device) {
    Perform(device);
    device->Open(O_WRONLY, 0, 5);
  };
  EXPECT_EQ(Verdict(kText, go_on),
            "after its last operation\n"
            "  expected  the end of the program\n  got       open O_WRONLY\n");
}

TEST(RecordingTest, is_good_up_to_wherever_it_is_cut) {
  const std::string whole = kText;
  std::size_t most = 0;
  for (std::size_t length = whole.find('\n') + 1; length < whole.size() - 1; ++length) {
    const Recording recording = ParseRecording(whole.substr(0, length));
    ASSERT_TRUE(recording.cut) << length;
    ASSERT_GE(recording.operations.size(), most) << length;
    most = recording.operations.size();
    for (const RecordedOperation& each : recording.operations) {
      ASSERT_EQ(each.record.input.size(), each.record.InputSize()) << length;
      ASSERT_EQ(each.record.output.size(), each.record.OutputSize()) << length;
    }
  }
  EXPECT_EQ(most, 10u);
}

}  // namespace
}  // namespace zulisim
