#include "simulator/recording.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <thread>

#include "simulator/engine.h"
#include "simulator/recorder.h"
#include "simulator/replay_device.h"
#include "simulator/scenario_file.h"
#include "simulator/transcript.h"

namespace zulisim {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

// A transcript that times and the program's descriptors do not change.
class Lines : public OperationObserver {
 public:
  void OnOperation(const OperationRecord& record) override {
    text += TranscriptLine(record, {false, true}) + "\n";
  }
  std::string text;
};

// A program that does all a program can, by the numbers of `seed`; what it got, byte for byte.
std::string Drive(Device* device, unsigned seed, int steps = 120) {
  std::mt19937 random(seed);
  const auto below = [&random](unsigned n) { return random() % n; };
  std::string got;
  std::vector<std::uint64_t> open;
  const auto keep = [&got](const Result& result, const Bytes& bytes) {
    got += std::to_string(result.value) + "/" + std::to_string(result.error) + ":";
    got.append(bytes.begin(), bytes.end());
  };
  for (int i = 0; i < steps; ++i) {
    if (open.empty() || below(12) == 0) {
      const Result result = device->Open(O_RDWR | O_CLOEXEC, random(), static_cast<int>(below(9)));
      keep(result, {});
      if (result.value < 0) continue;
      open.push_back(static_cast<std::uint64_t>(result.value));
      const Guid guid = DefaultClients().at(below(3)).guid;
      Bytes record(guid.begin(), guid.end());
      record[15] ^= below(8) == 0 ? 1 : 0;
      keep(device->Ioctl(open.back(), kConnectRequest, record.data()), record);
    }
    const std::size_t index = below(static_cast<unsigned>(open.size()));
    const std::uint64_t connection = open[index];
    Bytes buffer(below(3) == 0 ? below(5000) : below(60));
    for (std::uint8_t& byte : buffer) byte = static_cast<std::uint8_t>(random());
    void* at = below(10) == 0 || buffer.empty() ? nullptr : buffer.data();
    switch (below(10)) {
      case 0:
        keep(device->Ioctl(connection, 0x40044802, nullptr), {});
        break;
      case 1:
        keep(device->Close(connection), {});
        open.erase(open.begin() + static_cast<long>(index));
        break;
      case 2:
      case 3:
      case 4:
      case 5:
        keep(device->Write(connection, at, buffer.size()), {});
        break;
      default:
        keep(device->Read(connection, at, buffer.size()), buffer);
        break;
    }
  }
  for (const std::uint64_t connection : open) device->Release(connection);
  return got;
}

// The recording of that program with an engine that fails now and then.
std::string RecordedText(unsigned seed, std::string* got, std::string* lines, int steps = 120) {
  Engine engine;
  engine.AddFault({Operation::kOpen, 4, 1, ErrnoFault{EACCES}});
  engine.AddFault({Operation::kRead, 9, 2, ShortCount{5}});
  engine.AddFault({Operation::kWrite, 12, 1, ErrnoFault{600}});
  engine.AddFault({Operation::kRead, 30, 1, DeviceLoss{1, ENOENT, true}});
  std::string text;
  Lines transcript;
  {
    Recorder recorder(
        &engine, [&text](const std::string& piece) { text += piece; }, {"./a\nb", "#1 \x7f"},
        DefaultClients());
    recorder.AddObserver(&transcript);
    *got = Drive(&recorder, seed, steps);
  }
  *lines = transcript.text;
  return text;
}

TEST(RecordingTest, plays_back_byte_for_byte) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    std::string got;
    std::string lines;
    const std::string text = RecordedText(seed, &got, &lines);
    const Recording recording = ParseRecording(text);
    ASSERT_FALSE(recording.cut);
    ReplayDevice device(recording);
    Lines replayed;
    device.AddObserver(&replayed);
    EXPECT_EQ(Drive(&device, seed), got) << text;
    device.End();
    EXPECT_EQ(device.FirstDivergence() ? DivergenceText(*device.FirstDivergence()) : "", "");
    EXPECT_EQ(device.Replayed(), recording.operations.size());
    // What the bytes alone do not say (a short reply's own status) a replay cannot tell.
    EXPECT_EQ(std::count(replayed.text.begin(), replayed.text.end(), '\n'),
              std::count(lines.begin(), lines.end(), '\n'));
    // Another program leaves it.
    ReplayDevice other(recording);
    Drive(&other, seed + 100);
    other.End();
    EXPECT_TRUE(other.FirstDivergence());
  }
}

constexpr const char* kTwo = R"(zulisim recording 1
client KALO {FBF6FCF1-96CF-4E2E-A6A6-1BAB8CBE36B1}

1  0.000000001  #1  open O_RDWR|O_CLOEXEC  -> ok  in 0.000000001
2  0.000000002  #2  open O_RDWR|O_CLOEXEC  -> ok  in 0.000000001
3  0.000000003  #1  write 4  -> 4  in 0.000000001
  > 61616161  # aaaa
4  0.000000004  #2  write 4  -> ENODEV  in 0.000000001  # the device is lost at write 2
  > 62626262
5  0.000000005  #1  read 8  -> 2  in 0.000000001
  < 6869
6  0.000000006  #1  close  -> ok  in 0.000000001
7  0.000000007  #2  gone  -> ok  in 0.000000001
end
)";

Result Write(ReplayDevice* device, std::uint64_t connection, const std::string& text) {
  return device->Write(connection, text.data(), text.size());
}

TEST(RecordingTest, matches_connections_by_what_they_do_first) {
  ReplayDevice device(ParseRecording(kTwo));
  device.Open(O_RDWR | O_CLOEXEC, 1, 3);
  device.Open(O_RDWR | O_CLOEXEC, 2, 4);
  // The second open does what the first one did in the recording, and in another order.
  EXPECT_EQ(Write(&device, 1, "bbbb").error, ENODEV);
  EXPECT_EQ(Write(&device, 2, "aaaa").value, 4);
  device.Release(1);
  char buffer[8] = {};
  EXPECT_EQ(device.Read(2, buffer, sizeof(buffer)).value, 2);
  EXPECT_STREQ(buffer, "hi");
  EXPECT_EQ(device.Close(2).value, 0);
  device.End();
  EXPECT_FALSE(device.FirstDivergence());
}

TEST(RecordingTest, reports_the_first_divergence_alone) {
  const auto divergence = [](const std::function<void(ReplayDevice*)>& program) {
    ReplayDevice device(ParseRecording(kTwo));
    device.Open(O_RDWR | O_CLOEXEC, 0, 3);
    device.Open(O_RDWR | O_CLOEXEC, 0, 4);
    program(&device);
    device.End();
    const auto first = device.FirstDivergence();
    return first ? DivergenceText(*first) : "";
  };
  EXPECT_EQ(divergence([](ReplayDevice* device) {
              Write(device, 1, "aaaa");
              EXPECT_EQ(Write(device, 2, "bxbbc").error, ENODEV);
              char buffer[8];
              EXPECT_EQ(device->Read(1, buffer, sizeof(buffer)).error, ENODEV);
              EXPECT_EQ(device->Open(O_RDWR, 0, 5).error, ENODEV);
              EXPECT_EQ(device->Close(1).value, 0);
            }),
            "at operation 4 (line 8) on connection #2\n"
            "  expected  write 4 bytes\n  got       write 5 bytes\n"
            "    - 0000  62626262  bbbb\n    + 0000  62786262 63  bxbbc\n");
  EXPECT_EQ(divergence([](ReplayDevice* device) { Write(device, 1, "aaaa"); }),
            "at operation 4 (line 8) on connection #2\n"
            "  expected  write 4 bytes\n  got       the end of the program\n");
  EXPECT_EQ(
      divergence([](ReplayDevice* device) { device->Open(O_WRONLY, 0, 5); }),
      "behind its last operation\n  expected  the end of the program\n  got       open O_WRONLY\n");
}

TEST(RecordingTest, is_good_up_to_wherever_it_is_cut) {
  const std::string whole = kTwo;
  std::size_t most = 0;
  for (std::size_t length = whole.find('\n') + 1; length < whole.size() - 1; ++length) {
    const Recording recording = ParseRecording(whole.substr(0, length));
    ASSERT_TRUE(recording.cut) << length;
    ASSERT_GE(recording.operations.size(), most) << length;
    most = recording.operations.size();
    for (const RecordedOperation& each : recording.operations) {
      ASSERT_EQ(each.raw.input.size(), InputSize(each.raw)) << length;
    }
  }
  EXPECT_EQ(most, 7u);
  ReplayDevice device(ParseRecording(whole.substr(0, whole.find("  > 62"))));
  device.Open(O_RDWR | O_CLOEXEC, 0, 3);
  device.Open(O_RDWR | O_CLOEXEC, 0, 4);
  EXPECT_EQ(Write(&device, 1, "aaaa").value, 4);
  EXPECT_EQ(Write(&device, 2, "bbbb").error, ENODEV);
  device.End();
  EXPECT_TRUE(device.ReachedCut());
  EXPECT_FALSE(device.FirstDivergence());
}

TEST(RecordingTest, names_what_an_edit_has_broken) {
  const struct {
    const char* from;
    const char* to;
    const char* message;
  } cases[] = {
      {"recording 1", "recording 2", "1:19: '2' is no version"},
      {"zulisim", "zulusim", "1:1: no recording"},
      {"#1  write", "1  write", "6:17: '1' is no connection"},
      {"write 4  -> 4", "wrote 4  -> 4",
       "6:21: 'wrote' is no operation; open, ioctl, read, write or "
       "close is expected; did you mean 'write'?"},
      {"  > 61616161", "  > 616161", "6:1: the operation has 4 bytes behind '>', but 3 are there"},
      {"  > 61616161", "  > 61616161 61", "7:14: too many bytes"},
      {"  < 6869", "  < 68xx", "11:5: a piece of a message"},
      {"read 8  -> 2", "read 1  -> 2", "10:32: a result of 2 bytes is more than the 1"},
      {"ENODEV", "ENODVE", "8:33: 'ENODVE' is no errno; did you mean 'ENODEV'?"},
      {"read 8  -> 2  in 0.000000001", "read 8  -> 2", "10:33: 'in' is missing"},
      {"#2  open", "-  open", "5:17: an open that succeeds has a connection"},
      {"end\n", "end\nmore\n", "15:1: nothing may follow"},
  };
  for (const auto& each : cases) {
    std::string text = kTwo;
    const std::size_t at = text.find(each.from);
    ASSERT_NE(at, std::string::npos) << each.from;
    text.replace(at, std::string(each.from).size(), each.to);
    try {
      ParseRecording(text);
      ADD_FAILURE() << each.to << " was taken";
    } catch (const RecordingError& error) {
      EXPECT_THAT(DiagnosticText("", error.diagnostic()),
                  StartsWith(std::string(":") + each.message));
    }
  }
}

// The text with a few bytes changed, left out, doubled, or put in from a small vocabulary.
std::string Mutated(std::string text, std::mt19937* random) {
  static const char* const kWords[] = {"\n",
                                       "\"",
                                       "[[",
                                       "]]",
                                       "#1",
                                       "->",
                                       "0x",
                                       "null",
                                       "-1",
                                       "1e9",
                                       "end\n",
                                       "open",
                                       "= {",
                                       "99999999999999999999",
                                       "\xff",
                                       "O_CREAT|0xffffffff",
                                       "read 18446744073709551615"};
  for (unsigned i = 1 + (*random)() % 2; i > 0 && !text.empty(); --i) {
    const std::size_t at = (*random)() % text.size();
    const std::size_t length = std::min<std::size_t>(text.size() - at, (*random)() % 40);
    switch ((*random)() % 4) {
      case 0:
        text[at] = static_cast<char>((*random)());
        break;
      case 1:
        text.erase(at, length);
        break;
      case 2:
        text.insert(at, text.substr(at, length));
        break;
      default:
        text.insert(at, kWords[(*random)() % (sizeof(kWords) / sizeof(kWords[0]))]);
        break;
    }
  }
  return text;
}

TEST(MutatedFilesTest, never_break_what_reads_and_plays_them) {
  constexpr int kSteps = 20;
  std::mt19937 random(20);
  std::string got;
  std::string lines;
  const std::string recording = RecordedText(3, &got, &lines, kSteps);
  std::size_t played = 0;
  for (int i = 0; i < 1000; ++i) {
    try {
      ReplayDevice device(ParseRecording(Mutated(i % 2 == 0 ? kTwo : recording, &random)));
      Drive(&device, 3, kSteps);
      device.End();
      const auto divergence = device.FirstDivergence();
      EXPECT_NE(divergence ? DivergenceText(*divergence) : "-", "");
      ++played;
    } catch (const RecordingError& error) {
      EXPECT_GT(error.diagnostic().line, 0u);
    }
  }
  EXPECT_GT(played, 50u);
  const std::string scenario =
      R"(# Changes in here are of no consequence, and let some of the files stay good; the more so
# the more there is of it, as in the files that people write: comments are half of them.
seed = 5
[[client]]
name = "probe"
guid = "{00112233-4455-6677-8899-AABBCCDDEEFF}"
[[reply]]
client = "KALO"
command = 0x10
status = -2
body = "00112233"
private = "00 11"
latency = "30us"
[[fault]]
operation = "write"
at = "3-"
lose = { opens = 2, errno = "ENOENT", drop-replies = true }
[[fault]]
operation = "read"
probability = 0.25
short = 3
)";
  std::size_t obeyed = 0;
  for (int i = 0; i < 1000; ++i) {
    Scenario changed;
    if (!ReadScenario(Mutated(scenario, &random), "/nowhere", &changed).empty()) continue;
    for (ReplyRule& rule : changed.replies) rule.latency = {};
    Engine engine({changed.clients, false});
    Apply(changed, &engine);
    Drive(&engine, 3, kSteps);
    ++obeyed;
  }
  EXPECT_GT(obeyed, 50u);
}

}  // namespace
}  // namespace zulisim
