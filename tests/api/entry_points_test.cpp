// What the model of the entry points leaves out: the lock, the error record of each source, and
// sessions that other code wrote into the state.

#include <atomic>
#include <thread>

#include "tests/support/library_test.h"
#include "transport/cp_drem_session.h"

// As a driver declares it that loads the library itself.
int32_t DllMain(void* module, unsigned int reason, void* reserved);

namespace test {
namespace {

using testing::ElementsAre;

class EntryPoints : public LibraryTest {
 protected:
  uint32_t Send(uint32_t command) {
    Bytes message = Message(command, 16);
    return StartIo(message.data(), 16, message.data(), 16);
  }
};

TEST_F(EntryPoints, wait_for_the_lock_in_initialisation_alone) {
  void* handle = nullptr;
  KaloInit();
  std::atomic<int> lines{0};
  sink->onLine = [&lines] { ++lines; };
  Logger::logBase.level = 50;
  EnterCriticalSection(&state.stateLock);
  std::thread other([&handle] { KaloInit3(&handle); });
  while (lines == 0) std::this_thread::yield();
  EXPECT_EQ(Logger::logBase.level, 0);
  EXPECT_EQ(Logger::logBase.sinks.size(), 3u);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(lines, 1);
  KaloStateInit(nullptr);
  FenuInit();
  for (const uint32_t command : {0x10, 0x30000}) EXPECT_EQ(Send(command), 0u);
  FenuCleanup();
  KaloCleanup3(nullptr);
  KaloCleanup();
  LeaveCriticalSection(&state.stateLock);
  other.join();
}

TEST_F(EntryPoints, use_pointers_of_other_code_as_they_stand) {
  auto* own = new ClientSession;
  own->ConnectClient(&ClientSession::KALO_CLIENT_GUID);
  state.kaloSessionA = state.fenuSession = state.provisioningSession = own;
  for (const uint32_t command : {0x10, 0x30000}) EXPECT_EQ(Send(command), 0u);
  EXPECT_EQ(ProvisioningStartIo(nullptr, 0, nullptr, 0), 2u);
  EXPECT_EQ(own->lastErrorStatus, 2);
  EXPECT_EQ(KaloInit(), 0u);
  state.kaloRefCountA = 1;
  EXPECT_EQ(KaloCleanup(), 0u);
  EXPECT_EQ(engine.OpenDescriptors(), 0u);
  EXPECT_EQ(FenuCleanup(), 0u);
}

TEST_F(EntryPoints, know_what_is_destroyed_after_the_end_of_a_state_of_the_drivers_own) {
  void* handle = nullptr;
  EXPECT_EQ(FenuInit3(&handle), 0u);
  EXPECT_EQ(FenuCleanup3(handle), 0u);
  { const KaloDllState own; }
  EXPECT_EQ(FenuCleanup(), 0u);
}

TEST(Module, takes_every_reason) {
  for (const unsigned reason : {0u, 1u, 99u}) EXPECT_EQ(DllMain(nullptr, reason, nullptr), 1);
}

TEST(ErrorRecord, keeps_each_source_apart) {
  const auto save = [](uint32_t source, const char* text, uint32_t code, void* context = nullptr) {
    const StateSnapshot before;
    SaveLastErrorInfo(static_cast<_KaloDllErrorSource>(source), text, code, context, code);
    return before.Changed();
  };
  const std::string fits(1023, 'f'), tooLong(1024, 't');
  EXPECT_THAT(save(2, "two", 20), ElementsAre("kaloErrorText", "kaloErrorCode", "lastErrorSource",
                                              "lastErrorProcessId"));
  EXPECT_THAT(save(2, nullptr, 21), ElementsAre("kaloErrorCode", "lastErrorProcessId"));
  EXPECT_THAT(save(3, fits.c_str(), 30), ElementsAre("fenuErrorText", "fenuErrorCode",
                                                     "lastErrorSource", "lastErrorProcessId"));
  EXPECT_THAT(save(3, tooLong.c_str(), 31), ElementsAre("fenuErrorCode", "lastErrorProcessId"));
  EXPECT_THAT(save(4, "four", 40), ElementsAre("lastErrorSource", "lastErrorProcessId"));
  EXPECT_THAT(save(1, "one", 10, &gKaloDllState),
              ElementsAre("apiErrorText", "apiErrorCode", "lastErrorSource", "lastErrorContext",
                          "lastErrorProcessId"));
}

}  // namespace
}  // namespace test
