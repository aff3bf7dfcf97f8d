// The handle-less entry points and the wireless display: tags, texts, states, and what the two
// generations do to each other.

#include <unistd.h>

#include "tests/support/library_test.h"

namespace test {
namespace {

using testing::ElementsAre;
using zulisim::Operation;

constexpr char kNotOpen[] =
    "KALO Exception 0x6 StartIoEx() called before Init() or after Cleanup() API";

class Earlier : public LibraryTest {
 protected:
  Earlier() { Trace(); }

  uint32_t Send(uint32_t command, unsigned int inputLength = 32, unsigned int outputLength = 32) {
    Bytes input = Message(command);
    Bytes output(32);
    return StartIo(input.data(), inputLength, output.data(), outputLength);
  }
  // Lines of one function since the last call, without its name.
  Lines Told(const std::string& function) {
    Lines told;
    for (const std::string& line : TakeTaggedLog()) {
      if (line.rfind(function + ":", 0) == 0) told.push_back(line.substr(function.size() + 1));
    }
    return told;
  }
};

const std::string kKaloCleanupEntered = "830: Executing call to KaloCleanup() API...";
const std::string kKaloCleanupDone = "866: Call to KaloCleanup() API completed successfully.";

TEST_F(Earlier, kalo_session_is_opened_once_and_closed_by_the_last_count) {
  EXPECT_EQ(KaloCleanup(), 0u);
  EXPECT_THAT(
      Told("KaloCleanup"),
      ElementsAre(kKaloCleanupEntered, "832: KALO DREM Ref Cnt A 0", "848: KALO DREM Ref Cnt A 0",
                  "850: KALO DREM Ref Cnt B 0", "862: KALO DREM Ref Cnt B 0", kKaloCleanupDone));
  KALO_STATE_INIT_PARAMS params{0x30000, 1};
  KaloStateInit(&params);
  engine.FailNext(Operation::kOpen, ENOENT);
  EXPECT_EQ(KaloInit(), 1u);
  EXPECT_THAT(Told("KaloInit"), ElementsAre("802: Executing call to KaloInit() API...",
                                            "814: Call to KaloInit() API failed."));
  EXPECT_EQ(KaloInit(), 0u);
  EXPECT_THAT(Told("KaloInit"), ElementsAre("802: Executing call to KaloInit() API...",
                                            "810: Call to KaloInit() API completed successfully."));
  const StateSnapshot before;
  EXPECT_EQ(KaloInit(), 0u);
  EXPECT_EQ(TakeTaggedLog(), List("KaloInit:802: Executing call to KaloInit() API...",
                                  "KaloInit:820: Call to KaloInit() API completed successfully."));
  EXPECT_THAT(before.Changed(), ElementsAre());
  EXPECT_EQ(Send(0x2FFFF), 0u);
  EXPECT_EQ(Send(0x40000), 0u);

  // A second session and more handles, by way of the other generation.
  void* handle = nullptr;
  for (int i = 0; i < 11; ++i) KaloInit3(&handle);
  state.kaloRefCountA = 12;
  TakeTaggedLog();
  EXPECT_EQ(KaloCleanup(), 0u);
  EXPECT_THAT(
      Told("KaloCleanup"),
      ElementsAre(kKaloCleanupEntered, "832: KALO DREM Ref Cnt A c", "848: KALO DREM Ref Cnt A b",
                  "850: KALO DREM Ref Cnt B b", "862: KALO DREM Ref Cnt B a", kKaloCleanupDone));
  state.kaloRefCountA = state.kaloRefCountB = 1;
  const StateSnapshot last;
  EXPECT_EQ(KaloCleanup(), 0u);
  EXPECT_THAT(last.Changed(), ElementsAre("kaloSessionA", "kaloSessionB", "kaloRefCountA",
                                          "kaloRefCountB", "sessionBShared"));
  EXPECT_EQ(state.kaloSessionA, nullptr);
  EXPECT_EQ(engine.OpenDescriptors(), 0u);
  EXPECT_EQ(Send(0x10), 6u);
}

TEST_F(Earlier, failed_commands_are_filed_by_comparison_with_session_a) {
  const struct {
    uint32_t command;
    unsigned int inputLength, outputLength;
    uint32_t status;
    std::string text;
  } kFailures[] = {{0x10, 15, 15, 3, "KALO Exception 0x3 Input buffer < kalo header size"},
                   {0x10, 16, 15, 4, "KALO Exception 0x4 Output buffer < kalo header size"},
                   {0x30000, 16, 16, 6, kNotOpen},
                   {0x3FFFF, 32, 32, 6, kNotOpen},
                   {0x10, 32, 32, 6, kNotOpen}};
  for (const bool open : {false, true}) {
    if (open) KaloInit();
    const char* const text = open ? state.fenuErrorText : state.kaloErrorText;
    const uint32_t& code = open ? state.fenuErrorCode : state.kaloErrorCode;
    for (const auto& row : kFailures) {
      if (open && row.command == 0x10 && row.status == 6) continue;
      TakeTaggedLog();
      const StateSnapshot before;
      EXPECT_EQ(Send(row.command, row.inputLength, row.outputLength), row.status);
      EXPECT_EQ(TakeTaggedLog(), List("StartIoEx:1025: Call to StartIoEx() API failed.",
                                      "StartIoEx:1026: " + row.text));
      EXPECT_EQ(text, row.text);
      EXPECT_EQ(code, row.status);
      EXPECT_EQ(state.lastErrorSource, open ? 3u : 2u);
      EXPECT_EQ(state.lastErrorProcessId, static_cast<uint32_t>(getpid()));
      EXPECT_THAT(before.Changed(), testing::Each(testing::AnyOf(
                                        testing::StartsWith(open ? "fenuError" : "kaloError"),
                                        "lastErrorSource", "lastErrorProcessId")));
    }
    unsigned char byte = 0;
    EXPECT_EQ(StartIoEx(&byte, 4, nullptr, 0, nullptr, nullptr), 2u);
    EXPECT_STREQ(text, "KALO Exception 0x2 Invalid In or Out Buffer pointer");
  }
}

TEST_F(Earlier, private_data_is_handed_through) {
  KaloInit();
  engine.SetResponder("KALO", [](const zulisim::Bytes& request) {
    return zulisim::EchoReply(request, 0xFFFFFFFF, zulisim::Bytes(16, 'p'));
  });
  Bytes message = Message(0x10);
  Bytes data(16);
  unsigned int length = 0;
  EXPECT_EQ(StartIoEx(message.data(), 32, message.data(), 32, data.data(), &length), 0u);
  EXPECT_EQ(length, 16u);
  EXPECT_EQ(data, Bytes(16, 'p'));
  EXPECT_EQ(Send(0x10), 0u);
  EXPECT_THAT(TakeLog(), testing::Contains("IoMessage: Error in TEV input private data."));
}

class Fenu : public Earlier {
 protected:
  using Make = uint32_t (*)();
  static uint32_t Init3() {
    void* handle = reinterpret_cast<void*>(7);
    const uint32_t status = FenuInit3(&handle);
    EXPECT_EQ(handle, gKaloDllState.fenuSession);
    return status;
  }
  static uint32_t Cleanup3() { return FenuCleanup3(gKaloDllState.fenuSession); }
  static uint32_t Init() { return FenuInit(); }
  static uint32_t Cleanup() { return FenuCleanup(); }

  enum Session { kNull, kOpen, kDestroyed };
  struct Step {
    Make make;
    Lines told;  // "@" stands for the session's address
    uint32_t generation;
    Session session;
    uint32_t count;
    uint32_t command;  // status of a FENU command afterwards
  };

  void Follow(const std::vector<Step>& steps) {
    for (size_t i = 0; i < steps.size(); ++i) {
      SCOPED_TRACE(testing::Message() << "step " << i + 1);
      const StateSnapshot before;
      const uint64_t opens = Count(Operation::kOpen);
      EXPECT_EQ(steps[i].make(), 0u);
      Lines told = steps[i].told;
      uint64_t opened = 0;
      for (std::string& line : told) {
        if (line.back() != '@') continue;
        line.replace(line.size() - 1, 1, Pointer(state.fenuSession));
        opened = 1;
      }
      Lines log;
      for (const std::string& line : TakeTaggedLog()) {
        if (line.rfind("Fenu", 0) == 0) log.push_back(line);
      }
      EXPECT_EQ(log, told);
      EXPECT_EQ(Count(Operation::kOpen) - opens, opened);
      EXPECT_EQ(state.fenuInterfaceVersion, steps[i].generation);
      EXPECT_EQ(state.fenuSession == nullptr, steps[i].session == kNull);
      EXPECT_EQ(engine.OpenDescriptors(), steps[i].session == kOpen ? 1u : 0u);
      EXPECT_EQ(state.fenuRefCount, steps[i].count);
      EXPECT_THAT(before.Changed(), testing::Each(testing::StartsWith("fenu")));
      EXPECT_EQ(Send(0x30000), steps[i].command);
      TakeTaggedLog();
    }
  }

  static Lines InitLog(const std::string& outcome) {
    return List("FenuInit:881: Executing call to FenuInit() API...", "FenuInit:" + outcome);
  }
  static Lines Around(const Lines& inner, const std::string& last) {
    Lines lines = InitLog(last);
    lines.insert(lines.begin() + 1, inner.begin(), inner.end());
    return lines;
  }
  static Lines Cleanup3Log(const char* before, const char* after) {
    return List("FenuCleanup3:721: Executing call to FenuCleanup3() API... ",
                std::string("FenuCleanup3:723: FeNu KALO DREM Ref Cnt ") + before,
                std::string("FenuCleanup3:734: FeNu KALO DREM Ref Cnt ") + after,
                "FenuCleanup3:738: Call to FenuCleanup3() API completed successfully.");
  }
  static Lines CleanupLog(const char* before, const char* after) {
    return List("FenuCleanup:909: Executing call to FenuCleanup() API...",
                std::string("FenuCleanup:911: FeNu KALO DREM Ref Cnt ") + before,
                std::string("FenuCleanup:927: FeNu KALO DREM Ref Cnt ") + after,
                "FenuCleanup:931: Call to FenuCleanup() API completed successfully.");
  }
  static Lines SharedLog(const char* count) {
    return List("FenuInit3:660: Executing call to FenuInit3() API...",
                std::string("FenuInit3:682: KALO FeNu DREM Ref Cnt ") + count,
                "FenuInit3:709: Call to FenuInit3() API completed successfully. ");
  }
  const Lines openedLog =
      List("FenuInit3:660: Executing call to FenuInit3() API...",
           "FenuInit3:676: KALO FeNu DREM Handle @", "FenuInit3:677: KALO FeNu DREM Ref Cnt 1",
           "FenuInit3:709: Call to FenuInit3() API completed successfully. ");
  const std::string present = "899: Call to FenuInit() API completed successfully.";
  const std::string initialised = "888: Call to FenuInit() API completed successfully.";
};

TEST_F(Fenu, version_3_leaves_the_address_and_resets_the_generation) {
  Follow({{Cleanup3, Cleanup3Log("0", "0"), 0, kNull, 0, 6},
          {Init3, openedLog, 3, kOpen, 1, 0},
          {Init3, SharedLog("2"), 3, kOpen, 2, 0},
          {Cleanup3, Cleanup3Log("2", "1"), 3, kOpen, 1, 0},
          {Cleanup3, Cleanup3Log("1", "0"), 0, kDestroyed, 0, 6},
          {Init, InitLog(present), 0, kDestroyed, 0, 6},
          {Cleanup3, Cleanup3Log("0", "0"), 0, kDestroyed, 0, 6},
          {Cleanup, CleanupLog("0", "0"), 0, kNull, 0, 6},
          {Init3, openedLog, 3, kOpen, 1, 0}});
}

TEST_F(Fenu, earlier_generation_clears_the_address_and_keeps_the_generation) {
  Follow({{Cleanup, CleanupLog("0", "0"), 0, kNull, 0, 6},
          {Init, Around(openedLog, initialised), 3, kOpen, 1, 0},
          {Init, InitLog(present), 3, kOpen, 1, 0},
          {Cleanup, CleanupLog("1", "0"), 3, kNull, 0, 6},
          {Init, Around(SharedLog("1"), initialised), 3, kNull, 1, 6},
          {Cleanup3, Cleanup3Log("1", "0"), 0, kNull, 0, 6},
          {Init, Around(openedLog, initialised), 3, kOpen, 1, 0}});
}

TEST_F(Fenu, count_is_hexadecimal_and_count_zero_still_destroys) {
  Init3();
  for (int i = 0; i < 9; ++i) Init3();
  TakeTaggedLog();
  Follow({{Init3, SharedLog("b"), 3, kOpen, 11, 0},
          {Cleanup3, Cleanup3Log("b", "a"), 3, kOpen, 10, 0},
          {Cleanup, CleanupLog("a", "9"), 3, kOpen, 9, 0}});
  state.fenuRefCount = 0;
  Follow({{Cleanup, CleanupLog("0", "0"), 3, kNull, 0, 6}});
}

TEST_F(Fenu, unknown_generation_changes_nothing) {
  state.fenuInterfaceVersion = 2;
  Follow({{Init3,
           List("FenuInit3:660: Executing call to FenuInit3() API...",
                "FenuInit3:709: Call to FenuInit3() API completed successfully. "),
           2, kNull, 0, 6}});
}

TEST_F(Fenu, failed_connection_is_filed_under_version_3) {
  engine.FailNext(Operation::kIoctl, ENOENT);
  const StateSnapshot before;
  EXPECT_EQ(FenuInit(), 1u);
  const Lines log = TakeTranscript();
  EXPECT_EQ(Lines(log.end() - 3, log.end()),
            Of("FenuInit3", "Call to FenuInit3() API failed.", "Cannot connect to ZULI device.") +
                Of("FenuInit", "Call to FenuInit() API failed."));
  EXPECT_THAT(before.Changed(),
              ElementsAre("apiErrorText", "apiErrorCode", "lastErrorSource", "lastErrorProcessId"));
  engine.FailNext(Operation::kOpen, ENOENT);
  void* handle = this;
  EXPECT_EQ(FenuInit3(&handle), 1u);
  EXPECT_EQ(handle, this);
  EXPECT_EQ(TakeTaggedLog().back(), "FenuInit3:699: Cannot open ZULI device.");
  EXPECT_EQ(state.apiErrorCode, 0xFFFFFFFF);
}

// --- Sessions that are gone while a field still holds their address ---

TEST_F(Earlier, destroyed_session_is_never_closed_again) {
  void* kalo = nullptr;
  void* fenu = nullptr;
  KaloInit3(&kalo);
  KaloCleanup3(kalo);
  EXPECT_EQ(KaloInit(), 0u);
  EXPECT_EQ(state.kaloRefCountA, 0u);
  EXPECT_EQ(Send(0x10), 6u);
  EXPECT_EQ(state.lastErrorSource, 2u);
  state.kaloRefCountA = 1;
  EXPECT_EQ(KaloCleanup(), 0u);
  EXPECT_EQ(state.kaloSessionA, nullptr);

  FenuInit3(&fenu);
  FenuCleanup3(fenu);
  state.fenuRefCount = 1;
  EXPECT_EQ(FenuCleanup3(fenu), 0u);
  EXPECT_EQ(FenuCleanup(), 0u);
  EXPECT_EQ(Count(Operation::kClose), 2u);
}

TEST_F(Earlier, pointer_of_other_code_is_used_as_it_stands) {
  auto* own = new ClientSession;
  own->ConnectClient(&ClientSession::KALO_CLIENT_GUID);
  state.kaloSessionA = state.fenuSession = own;
  EXPECT_EQ(Send(0x10), 0u);
  EXPECT_EQ(Send(0x30000), 0u);
  EXPECT_EQ(KaloInit(), 0u);
  state.kaloRefCountA = 1;
  EXPECT_EQ(KaloCleanup(), 0u);
  EXPECT_EQ(engine.OpenDescriptors(), 0u);
  EXPECT_EQ(FenuCleanup(), 0u);
  state.provisioningSession = own = new ClientSession;
  EXPECT_EQ(ProvisioningStartIo(nullptr, 0, nullptr, 0), 2u);
  EXPECT_EQ(own->lastErrorStatus, 2);
  delete own;
}

}  // namespace
}  // namespace test
