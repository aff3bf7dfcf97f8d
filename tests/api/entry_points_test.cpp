// Tests what the random sequences cannot: the lock, the error record of each source, and sessions
// that other code wrote into the state.

#include "oscl/last_error.h"
#include "tests/support/library_test.h"

// Declared like in a driver that loads the library itself.
int32_t DllMain(void* module, unsigned int reason, void* reserved);

namespace test {
namespace {

using testing::ElementsAre;

class EntryPoints : public LibraryTest {};

uint32_t Send(uint32_t command) {
  Bytes message = Message(command, 16);
  return StartIo(message.data(), 16, message.data(), 16);
}

TEST_F(EntryPoints, take_the_lock_only_in_initialisation) {
  void* handle = nullptr;
  KaloInit();
  std::atomic<int> lines{0};
  size_t sinks = 0;
  sink->onLine = [&] {
    if (lines == 0) sinks = Logger::logBase.sinks.size();
    ++lines;
  };
  Logger::logBase.level = 50;
  EnterCriticalSection(&state.stateLock);
  std::thread other([&handle] { KaloInit3(&handle); });
  while (lines == 0) std::this_thread::yield();
  EXPECT_EQ(Logger::logBase.level, 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(lines, 1);
  EXPECT_EQ(sinks, 3u) << "the new sink gets the first line";
  KaloStateInit(nullptr);
  FenuInit();
  for (const uint32_t command : {0x10, 0x30000}) EXPECT_EQ(Send(command), 0u);
  FenuCleanup();
  KaloCleanup3(nullptr);
  KaloCleanup();
  LeaveCriticalSection(&state.stateLock);
  other.join();
}

TEST_F(EntryPoints, use_sessions_that_other_code_stored) {
  auto* own = new ClientSession;
  own->ConnectClient(&ClientSession::KALO_CLIENT_GUID);
  state.kaloSessionA = state.fenuSession = state.provisioningSession = own;
  for (const uint32_t command : {0x10, 0x30000}) EXPECT_EQ(Send(command), 0u);
  std::thread([] { EXPECT_EQ(ProvisioningStartIo(nullptr, 0, nullptr, 0), 2u); }).join();
  EXPECT_EQ(state.lastErrorProcessId, static_cast<uint32_t>(getpid()));
  EXPECT_EQ(own->lastErrorStatus, 2);
  EXPECT_EQ(KaloInit(), 0u);
  { const KaloDllState drivers; }
  state.kaloRefCountA = 1;
  EXPECT_EQ(KaloCleanup(), 0u);
  EXPECT_EQ(engine.OpenDescriptors(), 0u);
  EXPECT_EQ(SessionCleanup(own), 0u) << "already destroyed";
}

TEST_F(EntryPoints, ignore_a_session_of_a_driver_at_the_address_of_a_closed_one) {
  void* handle = nullptr;
  EXPECT_EQ(FenuInit3(&handle), 0u);
  EXPECT_EQ(FenuCleanup3(handle), 0u);
  std::vector<std::unique_ptr<ClientSession>> own;
  do {
    own.push_back(std::make_unique<ClientSession>());
  } while (own.back().get() != handle && own.size() < 100);
  if (own.back().get() != handle) GTEST_SKIP() << "the allocator does not reuse addresses";
  own.back()->ConnectClient(&ClientSession::FENU_CLIENT_GUID);
  EXPECT_EQ(Send(0x30000), 6u);
  EXPECT_EQ(FenuCleanup(), 0u);
  EXPECT_EQ(engine.OpenDescriptors(), 1u);
  EXPECT_EQ(SessionCleanup(own.back().release()), 0u) << "destroys it, although it did not before";
  EXPECT_EQ(engine.OpenDescriptors(), 0u);
}

TEST_F(EntryPoints, destroy_a_session_only_once) {
  using Call = std::function<uint32_t(void*&)>;
  const Call kaloInit3 = [](void*& handle) { return KaloInit3(&handle); };
  const Call fenuInit3 = [](void*& handle) { return FenuInit3(&handle); };
  const Call kaloCleanup = [](void*) { return KaloCleanup(); };
  const Call fenuCleanup = [](void*) { return FenuCleanup(); };
  const std::vector<std::pair<Call, int>> orders[] = {
      // FenuCleanup has closed the first session, and the second handle is null.
      {{fenuInit3, 0}, {fenuCleanup, 0}, {fenuInit3, 1}, {FenuCleanup3, 0}, {SessionCleanup, 0}},
      {{kaloInit3, 0}, {SessionCleanup, 0}, {SessionCleanup, 0}, {KaloCleanup3, 0}},
      // FenuCleanup3 gets a handle of the other firmware.
      {{kaloInit3, 0}, {fenuInit3, 1}, {FenuCleanup3, 0}, {KaloCleanup3, 0}, {SessionCleanup, 1}},
      {{fenuInit3, 0}, {kaloInit3, 1}, {SessionCleanup, 0}, {KaloCleanup3, 1}, {FenuCleanup3, 0}},
      // The second session can have the address of the first, and FenuCleanup3 then closes it.
      {{fenuInit3, 0}, {SessionCleanup, 0}, {kaloInit3, 1}, {FenuCleanup3, 0}, {KaloCleanup3, 1}},
      {{kaloInit3, 0}, {kaloInit3, 1}, {SessionCleanup, 0}, {SessionCleanup, 1}, {kaloCleanup, 0}},
      {{kaloInit3, 0}, {kaloInit3, 1}, {SessionCleanup, 1}, {SessionCleanup, 0}, {kaloCleanup, 0}}};
  KALO_STATE_INIT_PARAMS params = {KALO_FIRMWARE_API_30, 0};
  KaloStateInit(&params);
  void* handles[2] = {};
  for (int i = 0; i < 20; ++i) {
    for (const auto& order : orders) {
      for (const auto& [call, handle] : order) {
        EXPECT_EQ(call(handles[handle]), 0u) << "order " << &order - orders;
      }
      EXPECT_EQ(engine.OpenDescriptors(), 0u) << "order " << &order - orders;
    }
  }
  // A session that does not connect can have the address of the one that was destroyed last.
  for (const auto& [open, close] :
       {std::pair(kaloInit3, &KaloCleanup3), {fenuInit3, &FenuCleanup3}}) {
    open(handles[0]);
    close(handles[0]);
    engine.AddFault({zulisim::Operation::kOpen, zulisim::ErrnoFault{ENOENT}});
    EXPECT_EQ(open(handles[1]), 1u);
    EXPECT_EQ(SessionCleanup(handles[0]), 0u);
  }
}

TEST_F(EntryPoints, find_both_locks_free_in_the_child_of_a_fork) {
  std::atomic<bool> held{false}, done{false};
  std::thread holder([&] {
    EnterCriticalSection(&state.stateLock);
    EnterCriticalSection(&Logger::logBase.lock);
    held = true;
    while (!done) std::this_thread::yield();
    LeaveCriticalSection(&Logger::logBase.lock);
    LeaveCriticalSection(&state.stateLock);
  });
  while (!held) std::this_thread::yield();
  gLastError = 7;
  EXPECT_EXIT(
      {
        alarm(20);
        void* handle = nullptr;
        const bool works = GetLastError() == 7 && KaloInit3(&handle) == 0 && Send(0x10) == 0;
        _exit(works && KaloCleanup3(handle) == 0 ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
  for (CRITICAL_SECTION* lock : {&state.stateLock, &Logger::logBase.lock}) {
    EXPECT_EQ(pthread_mutex_trylock(lock), EBUSY) << "in the parent they stay held";
  }
  done = true;
  holder.join();
}

TEST(Module, accepts_every_reason) {
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
