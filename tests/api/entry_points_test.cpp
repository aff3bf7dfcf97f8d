// What the model of the entry points leaves out: the log file, the lock, private data, the error
// record of each source, and state that other code wrote.

#include <atomic>
#include <thread>

#include "tests/support/library_test.h"
#include "transport/cp_drem_session.h"

namespace test {
namespace {

using testing::ElementsAre;
using zulisim::Operation;

class EntryPoints : public LibraryTest {
 protected:
  static void* Init(uint32_t status = 0) {
    void* handle = nullptr;
    EXPECT_EQ(KaloInit3(&handle), status);
    return handle;
  }
  Bytes message_ = Message(0x10);
};

TEST_F(EntryPoints, add_a_sink_and_lower_the_threshold_at_each_initialisation) {
  Init();
  engine.FailNext(Operation::kOpen, ENOENT);
  state.kaloRefCountA = 0;
  Logger::logBase.level = 100;
  Init(1);
  EXPECT_EQ(Logger::logBase.level, 0);
  const size_t before = LogFileText().size();
  TakeRaw();
  KaloStateInit(nullptr);
  const Lines lines = TakeRaw();
  // Neither separated nor ended, and once for each initialisation.
  EXPECT_EQ(LogFileText().substr(before), lines[0] + lines[0] + lines[1] + lines[1]);
}

TEST_F(EntryPoints, wait_for_the_lock_in_initialisation_alone) {
  KALO_STATE_INIT_PARAMS params{0x30002, 0};
  KaloStateInit(&params);
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
  EXPECT_EQ(StartIo3(handle, message_.data(), 32, message_.data(), 32), 0u);
  EXPECT_EQ(StartIo(message_.data(), 32, message_.data(), 32), 0u);
  FenuInit();
  FenuCleanup();
  KaloCleanup3(handle);
  KaloCleanup();
  LeaveCriticalSection(&state.stateLock);
  other.join();
}

TEST_F(EntryPoints, hand_private_data_through) {
  KaloInit();
  engine.SetResponder("KALO", [](const zulisim::Bytes& request) {
    return zulisim::EchoReply(request, 0xFFFFFFFF, zulisim::Bytes(16, 'p'));
  });
  for (const bool earlier : {false, true}) {
    Bytes reply(32), data(16);
    unsigned int length = 0;
    EXPECT_EQ(earlier ? StartIoEx(message_.data(), 32, reply.data(), 31, data.data(), &length)
                      : StartIoEx3(state.kaloSessionA, message_.data(), 32, reply.data(), 31,
                                   data.data(), &length),
              0u);
    EXPECT_EQ(length, 16u);
    EXPECT_EQ(data, Bytes(16, 'p'));
    Bytes echo = Message(0x10, 32, 0xFFFFFFFF);
    echo.back() = 0;
    EXPECT_EQ(reply, echo);
  }
  Trace();
  EXPECT_EQ(StartIo(message_.data(), 32, message_.data(), 32), 0u);
  EXPECT_THAT(TakeLog(), testing::Contains("IoMessage: Error in TEV input private data."));
}

TEST_F(EntryPoints, use_pointers_of_other_code_as_they_stand) {
  auto* own = new ClientSession;
  own->ConnectClient(&ClientSession::KALO_CLIENT_GUID);
  state.kaloSessionA = state.fenuSession = own;
  for (const uint32_t command : {0x10, 0x30000}) {
    Bytes message = Message(command);
    EXPECT_EQ(StartIo(message.data(), 32, message.data(), 32), 0u);
  }
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

TEST_F(EntryPoints, know_what_is_destroyed_after_the_end_of_a_state_of_the_drivers_own) {
  void* handle = nullptr;
  EXPECT_EQ(FenuInit3(&handle), 0u);
  EXPECT_EQ(FenuCleanup3(handle), 0u);
  { const KaloDllState own; }
  EXPECT_EQ(FenuCleanup(), 0u);
}

TEST(Module, takes_every_reason) {
  for (const unsigned reason : {0u, 1u, 2u, 3u, 99u})
    EXPECT_EQ(DllMain(nullptr, reason, nullptr), 1);
}

TEST(ErrorRecord, keeps_each_source_apart) {
  const auto save = [](uint32_t source, const char* text, uint32_t code, void* context = nullptr) {
    const StateSnapshot before;
    SaveLastErrorInfo(static_cast<_KaloDllErrorSource>(source), text, code, context, code);
    return before.Changed();
  };
  const std::string fits(1023, 'f');
  EXPECT_THAT(save(2, "two", 20), ElementsAre("kaloErrorText", "kaloErrorCode", "lastErrorSource",
                                              "lastErrorProcessId"));
  EXPECT_THAT(save(2, nullptr, 21), ElementsAre("kaloErrorCode", "lastErrorProcessId"));
  EXPECT_THAT(save(3, fits.c_str(), 30), ElementsAre("fenuErrorText", "fenuErrorCode",
                                                     "lastErrorSource", "lastErrorProcessId"));
  EXPECT_THAT(save(3, std::string(1024, 't').c_str(), 31),
              ElementsAre("fenuErrorCode", "lastErrorProcessId"));
  EXPECT_EQ(gKaloDllState.fenuErrorText, fits);
  EXPECT_THAT(save(4, "four", 40), ElementsAre("lastErrorSource", "lastErrorProcessId"));
  EXPECT_THAT(save(1, "one", 10, gKaloDllState.kaloErrorText),
              ElementsAre("apiErrorText", "apiErrorCode", "lastErrorSource", "lastErrorContext",
                          "lastErrorProcessId"));
  EXPECT_STREQ(gKaloDllState.kaloErrorText, "two");
}

}  // namespace
}  // namespace test
