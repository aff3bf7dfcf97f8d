#include "simulator/record/recording.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "simulator/engine/engine.h"
#include "simulator/record/replay_device.h"
#include "simulator/scenario/scenario_file.h"

namespace zulisim {
namespace {

using testing::StartsWith;

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
  keep(device->Read(2, buffer, 8));
  keep(device->Read(2, nullptr, 8));
  keep(device->Open(O_WRONLY, 0, -1));
  device->Release(1);
  keep(device->Close(2));
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
    EXPECT_EQ(device->Close(1).value, 0);
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

TEST(RecordingTest, names_what_an_edit_has_broken) {
  const struct {
    std::string from;
    const char* to;
    const char* message;
  } cases[] = {
      {"recording 1", "recording 2", ":1:19: '2' is not a version"},
      {"zulisim", "zulusim", ":1:1: not a recording"},
      {"#1  write", "1  write", ":7:17: '1' is not a connection"},
      {"write 4  -> 4", "wrote 4  -> 4", ":7:21: 'wrote' is not an operation; open, ioctl"},
      {"  > 61616161", "  > 616161", ":7:1: the operation has 4 bytes after '>', but 3 are there"},
      {"  > 61616161", "  > 616161 6161", ":8:12: too many bytes"},
      {"  < 6869", "  < 68xx", ":12:5: a piece of a message"},
      {"read 8  -> 2", "read 1  -> 2", ":11:32: a result of 2 bytes is more than the 1"},
      {"ENODEV", "ENODVE", ":9:33: 'ENODVE' is not a valid errno name; did you mean 'ENODEV'?"},
      {"read 8  -> 2  in 0.000000001", "read 8  -> 2", ":11:33: 'in' is missing"},
      {"#2  open", "-  open", ":6:17: an open that succeeds has a connection"},
      {"end\n", "end\nmore\n", ":21:1: nothing may follow"},
  };
  for (const auto& each : cases) {
    std::string text = kText;
    text.replace(text.find(each.from), each.from.size(), each.to);
    EXPECT_THAT(Verdict(text, Perform), StartsWith(each.message));
  }
}

TEST(MutatedFilesTest, never_break_what_reads_and_plays_them) {
  const std::string scenario =
      "[[fault]]\noperation = 'write'\nat = '3-'\nlose = { opens = 2, drop-replies = true }\n"
      "[[reply]]\nclient = 'KALO'\nstatus = -2\nbody = '0011 2233'\nprivate = '00 11'\n"
      "unusual = true\n";
  std::mt19937 random(20);
  int good = 0;
  for (int i = 0; i < 2000; ++i) {
    std::string text = i % 2 == 0 ? kText : scenario;
    const std::string piece = text.substr(random() % text.size(), random() % 12);
    text.replace(random() % text.size(), random() % 12, piece);
    Scenario changed;
    if (i % 2 == 0) {
      good += Verdict(text, Perform)[0] == ':' ? 0 : 1;
    } else if (ReadScenario(text, "/nowhere", &changed).empty()) {
      Engine engine({changed.clients, false});
      Apply(changed, &engine);
      Perform(&engine);
      ++good;
    }
  }
  EXPECT_GT(good, 100);
}

}  // namespace
}  // namespace zulisim
