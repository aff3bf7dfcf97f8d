// The handle-based entry points: what each logs, in order, and what it leaves in the state.

#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "tests/support/library_test.h"
#include "transport/cp_drem_session.h"

namespace test {
namespace {

using testing::ElementsAre;
using zulisim::Operation;

constexpr uint32_t kNoStatus = 0xFFFFFFFF;
void* const kNoContext = reinterpret_cast<void*>(0xDEADBEEFull);
void* const kUnwritten = reinterpret_cast<void*>(0x77);

std::string Hex(uint32_t value) {
  std::ostringstream text;
  text << std::hex << value;
  return text.str();
}

class Version3 : public LibraryTest {
 protected:
  static void Announce(uint32_t version, uint32_t option) {
    KALO_STATE_INIT_PARAMS params{version, option};
    EXPECT_EQ(KaloStateInit(&params), 0u);
  }
  static void* Init(uint32_t status = 0) {
    void* handle = kUnwritten;
    EXPECT_EQ(KaloInit3(&handle), status);
    return handle;
  }
  Lines Succeeded(const Lines& between, const void* handle) const {
    return Of("KaloInit3", "Executing call to KaloInit3() API ...") + between +
           Of("KaloInit3", "Call to KaloInit3() API completed successfully. ",
              "Returned DREM Handle " + Pointer(handle));
  }
  void ExpectRecorded(const char* text, uint32_t code, const void* context) const {
    EXPECT_STREQ(state.apiErrorText, text);
    EXPECT_EQ(state.apiErrorCode, code);
    EXPECT_EQ(state.lastErrorSource, KALO_ERROR_SOURCE_API3);
    EXPECT_EQ(state.lastErrorContext, context);
    EXPECT_EQ(state.lastErrorProcessId, static_cast<uint32_t>(getpid()));
  }
};

TEST_F(Version3, state_is_fresh_after_load_and_takes_the_announcement) {
  EXPECT_EQ(state.lastErrorContext, kNoContext);
  EXPECT_EQ(state.lastErrorProcessId, 0xDEADBEEF);
  for (const unsigned reason : {0u, 1u, 2u, 3u, 99u})
    EXPECT_EQ(DllMain(nullptr, reason, nullptr), 1);
  const Lines log = Of("KaloStateInit", "Executing call to KaloStateInit() API...",
                       "Call to KaloInit() API completed successfully.");
  const StateSnapshot before;
  EXPECT_EQ(KaloStateInit(nullptr), 0u);
  EXPECT_EQ(TakeTranscript(), log);
  EXPECT_THAT(before.Changed(), ElementsAre());
  Announce(0x30002, 1);
  EXPECT_EQ(TakeTranscript(), log);
  EXPECT_THAT(before.Changed(), ElementsAre("firmwareApiVersion", "stateInitFlag"));
  EXPECT_EQ(state.firmwareApiVersion, 0x30002u);
  Announce(0, 2);
  EXPECT_THAT(before.Changed(), ElementsAre());
}

// Which session each caller gets: A, B, or none ('-').
struct Sharing {
  const char* name;
  uint32_t version;
  uint32_t option;
  std::string sessions;
};
void PrintTo(const Sharing& row, std::ostream* out) { *out << row.name; }

class Shared : public Version3, public testing::WithParamInterface<Sharing> {};

TEST_P(Shared, by_version_and_option) {
  const auto& [name, version, option, sessions] = GetParam();
  Announce(version, option);
  TakeTranscript();
  uint32_t a = 0, b = 0;
  for (const char session : sessions) {
    SCOPED_TRACE(testing::Message() << "caller " << a + b + 1);
    void* const handle = Init();
    Lines lines;
    if (session == '-') {
      EXPECT_EQ(handle, kUnwritten);
      lines = Of("KaloInit3", "Error - FW version is not set ");
    } else {
      EXPECT_EQ(handle, session == 'A' ? state.kaloSessionA : state.kaloSessionB);
      const uint32_t count = ++(session == 'A' ? a : b);
      if (a + b == 1) {
        lines = List("<open>", "<ioctl>") +
                Of("KaloInit3", "KALO DREM Handle A " + Pointer(handle), "KALO DREM Ref Cnt A 1");
      } else if (version == 0x30002) {
        lines = Of("KaloInit3", "KALO DREM Handle A " + Pointer(handle),
                   "KALO DREM Ref Cnt A with FW API_32 " + Hex(count));
      } else if (session == 'B' && b == 1) {
        lines = List("<open>", "<ioctl>") +
                Of("KaloInit3", "KALO DREM Handle B with FW API_30 " + Pointer(handle),
                   "KALO DREM Ref Cnt B with FW API_30 1");
      } else {
        lines = Of("KaloInit3", "KALO DREM Ref Cnt A with FW API_30 " + Hex(a),
                   "KALO DREM Ref Cnt B with FW API_30 " + Hex(b));
      }
    }
    EXPECT_EQ(TakeTranscript(), Succeeded(lines, handle));
  }
  EXPECT_EQ(state.kaloRefCountA, a);
  EXPECT_EQ(state.kaloRefCountB, b);
}

INSTANTIATE_TEST_SUITE_P(is_as_listed, Shared,
                         testing::Values(Sharing{"api32", 0x30002, 0, "AAAAAAAAAAAA"},
                                         Sharing{"api32_option", 0x30002, 1, "AAA"},
                                         Sharing{"api30", 0x30000, 0, "ABAAAAAAAAAA"},
                                         Sharing{"api30_option", 0x30000, 1, "ABBBBBBBBBBBB"},
                                         Sharing{"api30_other_option", 0x30000, 2, "ABA"},
                                         Sharing{"unset", 0, 1, "A--"},
                                         Sharing{"api31", 0x30001, 1, "A--"}),
                         [](const auto& row) { return row.param.name; });

TEST_F(Version3, failed_connection_changes_nothing_but_the_error_record) {
  const struct {
    Operation operation;
    Lines device;
    const char* text;
  } kFailures[] = {
      {Operation::kOpen, {"<open ENOENT>"}, "Cannot open ZULI device."},
      {Operation::kIoctl, {"<open>", "<ioctl ENOENT>"}, "Cannot connect to ZULI device."},
  };
  Announce(0x30000, 0);
  // The first caller's session, then the second's.
  for (int session = 0; session < 2; ++session) {
    for (const auto& [operation, device, text] : kFailures) {
      state.lastErrorSource = 0;
      state.lastErrorContext = nullptr;
      TakeTranscript();
      const StateSnapshot before;
      engine.FailNext(operation, ENOENT);
      EXPECT_EQ(Init(1), kUnwritten);
      EXPECT_EQ(TakeTranscript(), Of("KaloInit3", "Executing call to KaloInit3() API ...") +
                                      device +
                                      Of("KaloInit3", "Call to KaloInit3() API failed.", text));
      ExpectRecorded(text, kNoStatus, kNoContext);
      for (const std::string& field : before.Changed())
        EXPECT_THAT(field, testing::HasSubstr("Error"));
    }
    Init();
  }
}

TEST_F(Version3, damaged_generation_destroys_the_session_and_rolls_nothing_back) {
  state.kaloInterfaceVersion = 1;
  const StateSnapshot before;
  void* const handle = Init(5);
  EXPECT_EQ(handle, state.kaloSessionA);
  const char* const text = "KALO Exception 0x5 Previous provisioning attempt failed.";
  EXPECT_EQ(TakeTranscript(),
            Of("KaloInit3", "Executing call to KaloInit3() API ...") + List("<open>", "<ioctl>") +
                Of("KaloInit3", "KALO DREM Handle A " + Pointer(handle), "KALO DREM Ref Cnt A 1") +
                List("<close>") + Of("KaloInit3", "Call to KaloInit3() API failed.", text));
  ExpectRecorded(text, 5, kNoContext);
  EXPECT_THAT(before.Changed(),
              ElementsAre("kaloSessionA", "apiErrorText", "apiErrorCode", "lastErrorSource",
                          "lastErrorProcessId", "kaloRefCountA"));
  // A later caller shares what is destroyed; the counts alone move, and nothing is touched again.
  Announce(0x30002, 0);
  EXPECT_EQ(Init(5), handle);
  EXPECT_EQ(state.kaloRefCountA, 2u);
  TakeTranscript();
  for (const char* count : {"1", "0", "0"}) {
    EXPECT_EQ(KaloCleanup3(handle), 0u);
    EXPECT_EQ(TakeTranscript()[2], "KaloCleanup3: KALO DREM Ref Cnt A " + std::string(count));
  }
  EXPECT_EQ(Count(Operation::kClose), 1u);
}

TEST_F(Version3, every_initialisation_adds_a_sink_and_lowers_the_threshold) {
  EXPECT_EQ(LogFileText(), "");
  Init();
  engine.FailNext(Operation::kOpen, ENOENT);
  state.kaloRefCountA = 0;
  Logger::logBase.level = 100;
  Init(1);
  EXPECT_EQ(Logger::logBase.level, 0);
  const size_t before = LogFileText().size();
  TakeTaggedLog();
  KaloStateInit(nullptr);
  const Lines lines = TakeTaggedLog();
  // Neither separated nor ended, and once for each initialisation.
  EXPECT_EQ(LogFileText().substr(before), lines[0] + lines[0] + lines[1] + lines[1]);
}

TEST_F(Version3, initialisation_waits_for_the_lock_that_nobody_else_takes) {
  Announce(0x30002, 0);
  void* const handle = Init();
  std::atomic<int> lines{0};
  sink->onLine = [&lines] { ++lines; };
  Logger::logBase.level = 50;
  EnterCriticalSection(&state.stateLock);
  std::thread other([] { Init(); });
  while (lines == 0) std::this_thread::yield();
  EXPECT_EQ(Logger::logBase.level, 0);
  EXPECT_EQ(Logger::logBase.sinks.size(), 3u);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(lines, 1);
  KaloStateInit(nullptr);
  KaloInit();
  Bytes message = Message(0x10);
  EXPECT_EQ(StartIo3(handle, message.data(), 32, message.data(), 32), 0u);
  EXPECT_EQ(StartIo(message.data(), 32, message.data(), 32), 0u);
  FenuInit();
  FenuCleanup();
  KaloCleanup3(handle);
  KaloCleanup();
  LeaveCriticalSection(&state.stateLock);
  other.join();
}

class Command : public Version3 {
 protected:
  Command() : handle(Init()), session(static_cast<ClientSession*>(handle)) { TakeTranscript(); }

  static Lines Entry(const void* session, unsigned int inputLength, unsigned int outputLength) {
    return Of("StartIoEx3", "Executing call to StartIoEx3() API...",
              "CpSession: " + Pointer(session) + "\n",
              "InputBufferLength: " + std::to_string(inputLength) + "\n",
              "OutputBufferLength: " + std::to_string(outputLength) + "\n");
  }

  void* const handle;
  ClientSession* const session;
  Bytes input = Message(0x10);
  Bytes output = Bytes(32);
};

TEST_F(Command, is_carried_and_told) {
  const Lines success = Of("StartIoEx3", "Call to StartIoEx3() API completed successfully.");
  const StateSnapshot before;
  EXPECT_EQ(StartIoEx3(handle, input.data(), 32, output.data(), 31, nullptr, nullptr), 0u);
  EXPECT_EQ(TakeTranscript(), Entry(handle, 32, 31) + List("<write>", "<read>") + success);
  EXPECT_EQ(output, [this] {
    Bytes echo = input;
    echo.back() = 0;
    return echo;
  }());
  EXPECT_EQ(StartIo3(handle, input.data(), 32, output.data(), 32), 0u);
  EXPECT_EQ(TakeTranscript(), Of("StartIo3", "Executing call to StartIo3() API...") +
                                  Entry(handle, 32, 32) + List("<write>", "<read>") + success +
                                  Of("StartIo3", "Call to StartIo3() API completed successfully."));
  // A firmware status is none of the library's.
  engine.SetResponder("KALO", [](const zulisim::Bytes& request) {
    return zulisim::EchoReply(request, 0x80000000, zulisim::Bytes(16, 'p'));
  });
  Bytes data(16);
  unsigned int length = 0;
  EXPECT_EQ(StartIoEx3(handle, input.data(), 32, output.data(), 32, data.data(), &length), 0u);
  EXPECT_EQ(length, 16u);
  EXPECT_EQ(data, Bytes(16, 'p'));
  EXPECT_THAT(before.Changed(), ElementsAre());
}

TEST_F(Command, that_fails_is_recorded_twice) {
  const struct {
    bool handle, input, output;
    unsigned int inputLength, outputLength;
    bool device;
    uint32_t status;
    const char* text;
  } kFailures[] = {
      {false, false, false, 4, 4, true, 2, "KALO Exception 0x2 Invalid CP session handle"},
      {true, false, true, 32, 32, true, 2, "KALO Exception 0x2 Invalid In or Out Buffer pointer"},
      {true, true, false, 4, 4, true, 2, "KALO Exception 0x2 Invalid In or Out Buffer pointer"},
      {true, true, true, 15, 15, true, 3, "KALO Exception 0x3 Input buffer < kalo header size"},
      {true, true, true, 16, 15, true, 4, "KALO Exception 0x4 Output buffer < kalo header size"},
      {true, true, true, 16, 16, false, 1, "Error writing message to ZULI."},
  };
  for (const auto& row : kFailures) {
    SCOPED_TRACE(row.text);
    if (!row.device) engine.FailNext(Operation::kWrite, EIO);
    session->storeErrInfo(KALO_DLL_STATUS_FAILURE, std::string(1024, '.'));
    void* const used = row.handle ? handle : nullptr;
    EXPECT_EQ(StartIo3(used, row.input ? input.data() : nullptr, row.inputLength,
                       row.output ? output.data() : nullptr, row.outputLength),
              row.status);
    EXPECT_EQ(TakeTranscript(), Of("StartIo3", "Executing call to StartIo3() API...") +
                                    Entry(used, row.inputLength, row.outputLength) +
                                    (row.device ? Lines() : List("<write EIO>")) +
                                    Of("StartIoEx3",
                                       std::string(row.status == 1 ? "General" : "Kalo") +
                                           " Exception : Call to StartIoEx3() API failed.",
                                       row.text) +
                                    Of("StartIo3", "Call to StartIo3() API failed."));
    ExpectRecorded(row.text, row.status == 1 ? kNoStatus : row.status, used);
    const size_t length = row.handle ? std::strlen(row.text) : 0;
    EXPECT_EQ(std::string(session->lastErrorText, 1024),
              std::string(row.text, length) + std::string(1024 - length, '.'));
    EXPECT_EQ(session->lastErrorStatus, !row.handle       ? 1
                                        : row.status == 1 ? -1
                                                          : static_cast<int>(row.status));
  }
  EXPECT_EQ(ProvisioningStartIo(input.data(), 32, output.data(), 32), 2u);
  EXPECT_EQ(
      TakeTranscript(),
      Entry(nullptr, 32, 32) + Of("StartIoEx3", "Kalo Exception : Call to StartIoEx3() API failed.",
                                  "KALO Exception 0x2 Invalid CP session handle"));
}

TEST_F(Command, with_an_ioctl_tag_of_length_nine_sends_nothing) {
  const Lines exchange = List("<write>", "<read>");
  const Lines alloc = Of("StartIoEx3", "IoctlWrapper handle allocation call\n");
  const struct {
    const char* tag;
    unsigned int length;
    Lines lines;
  } kTags[] = {
      {"IOCTLHND", 9, alloc},
      {"IOCTLHNDx", 9, alloc},
      {"IOCTLHND", 8, exchange},
      {"IOCTLHND", 10, exchange},
      {"IOCTLFRE", 8, exchange},
      {"IOCTLFRE", 10, exchange},
      {"IOCTLHNX", 9, exchange},
      {"IOCTLFRE", 9, Of("StartIoEx3", "IoctlWrapper handle free call\n")},
  };
  for (const auto& [tag, length, lines] : kTags) {
    SCOPED_TRACE(testing::Message() << tag << " " << length);
    Bytes data(16);
    std::memcpy(data.data(), tag, std::strlen(tag));
    unsigned int dataLength = length;
    // The lengths of a message do not matter to a wrapper.
    const unsigned int size = lines == exchange ? 32 : 3;
    EXPECT_EQ(StartIoEx3(handle, input.data(), size, output.data(), size, data.data(), &dataLength),
              0u);
    EXPECT_EQ(TakeTranscript(),
              Entry(handle, size, size) + lines +
                  Of("StartIoEx3", "Call to StartIoEx3() API completed successfully."));
    EXPECT_EQ(dataLength, length);
  }
  session->ConnectClient(&ClientSession::FENU_CLIENT_GUID);
  Bytes data{'I', 'O', 'C', 'T', 'L', 'F', 'R', 'E'};
  unsigned int dataLength = 9;
  EXPECT_EQ(StartIoEx3(handle, input.data(), 32, output.data(), 32, data.data(), &dataLength), 1u);
  ExpectRecorded("IOCTL call without active DREM sessions", kNoStatus, handle);
}

TEST_F(Version3, cleanup_destroys_with_the_last_handle_and_forgets_no_address) {
  Announce(0x30000, 1);
  void* const a = Init();
  void* const b = Init();
  Init();
  void* fenu = nullptr;
  EXPECT_EQ(FenuInit3(&fenu), 0u);
  TakeTranscript();
  const struct {
    void* handle;
    Lines lines;  // counts: A before, A after, B before, B after; and the device
    Lines changed;
  } kSteps[] = {
      {fenu, {"A 1", "A 1", "B 2", "B 2"}, {}},
      {nullptr, {"A 1", "A 1", "B 2", "B 2"}, {}},
      {b, {"A 1", "A 1", "B 2", "B 1"}, {"kaloRefCountB"}},
      {a, {"A 1", "<close>", "A 0", "B 1", "B 1"}, {"kaloRefCountA", "sessionBShared"}},
      {a, {"A 0", "A 0", "B 1", "B 1"}, {}},
      {b, {"A 0", "A 0", "B 1", "<close>", "B 0"}, {"kaloRefCountB"}},
      {b, {"A 0", "A 0", "B 0", "B 0"}, {}},
  };
  for (const auto& [handle, lines, changed] : kSteps) {
    const StateSnapshot before;
    EXPECT_EQ(KaloCleanup3(handle), 0u);
    Lines expected = Of("KaloCleanup3", "Executing call to KaloCleanup3() API...");
    for (const std::string& line : lines) {
      expected.push_back(line[0] == '<' ? line : "KaloCleanup3: KALO DREM Ref Cnt " + line);
    }
    EXPECT_EQ(TakeTranscript(),
              expected + Of("KaloCleanup3", "Call to KaloCleanup3() API completed successfully."));
    EXPECT_EQ(before.Changed(), changed);
  }
  EXPECT_EQ(state.kaloSessionA, a);
  EXPECT_EQ(SessionCleanup(nullptr), 0u);
  EXPECT_EQ(TakeTranscript(), Lines{});
}

TEST(ErrorRecord, keeps_each_source_apart) {
  const auto save = [](uint32_t source, const char* text, uint32_t code, void* context = nullptr) {
    const StateSnapshot before;
    SaveLastErrorInfo(static_cast<_KaloDllErrorSource>(source), text, code, context, code);
    return before.Changed();
  };
  const std::string fits(1023, 'f');
  const std::string tooLong(1024, 't');
  EXPECT_THAT(save(2, "two", 20), ElementsAre("kaloErrorText", "kaloErrorCode", "lastErrorSource",
                                              "lastErrorProcessId"));
  EXPECT_THAT(save(2, nullptr, 21), ElementsAre("kaloErrorCode", "lastErrorProcessId"));
  EXPECT_THAT(save(3, fits.c_str(), 30), ElementsAre("fenuErrorText", "fenuErrorCode",
                                                     "lastErrorSource", "lastErrorProcessId"));
  EXPECT_THAT(save(3, tooLong.c_str(), 31), ElementsAre("fenuErrorCode", "lastErrorProcessId"));
  EXPECT_EQ(gKaloDllState.fenuErrorText, fits);
  EXPECT_THAT(save(4, "four", 40), ElementsAre("lastErrorSource", "lastErrorProcessId"));
  EXPECT_THAT(save(1, "one", 10, gKaloDllState.kaloErrorText),
              ElementsAre("apiErrorText", "apiErrorCode", "lastErrorSource", "lastErrorContext",
                          "lastErrorProcessId"));
  EXPECT_STREQ(gKaloDllState.kaloErrorText, "two");
}

}  // namespace
}  // namespace test
