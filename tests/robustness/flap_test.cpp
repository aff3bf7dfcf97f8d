#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <functional>
#include <iostream>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>

#include "api/kalo_dll_state.h"
#include "tests/robustness/driver.h"
#include "transport/client_session.h"

namespace {

using driver::Bytes;
using driver::Outcome;
using driver::Request;
using zulisim::Operation;

// Sums up what it is given, so that two sinks can be compared. Only the log's lock guards it.
struct SumSink : LogSink {
  void logMessage(const char* message) override {
    const std::string line = message;
    const size_t tag = line.find(": ");
    if (tag == std::string::npos || line.find(':') >= tag || line.size() <= tag + 2) ++torn;
    sum = sum * 31 + std::hash<std::string>()(line);
    ++lines;
  }

  size_t sum = 0;
  size_t lines = 0;
  size_t torn = 0;
};

class FlapTest : public testing::Test {
 protected:
  FlapTest() : attachment_(engine_, {{"/data/Marvoleth.log", "/dev/null"}}) {
    for (SumSink*& sink : sinks_) Logger::logBase.sinks.push_back(sink = new SumSink);
    for (const char* client : {"KALO", "FENU", "SAB"}) {
      engine_.SetResponder(client, [this](const Bytes& request) {
        const std::lock_guard<std::mutex> lock(mutex_);
        ++served_[driver::TagOf(request)];
        return driver::Answer(request);
      });
    }
  }

  ~FlapTest() override {
    EXPECT_GT(sinks_[0]->lines, 0u);
    EXPECT_EQ(sinks_[0]->torn, 0u);
    EXPECT_EQ(sinks_[0]->lines, sinks_[1]->lines);
    EXPECT_EQ(sinks_[0]->sum, sinks_[1]->sum);
    driver::TrimSinks(0);
  }

  uint32_t Served(const Bytes& request) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return served_[driver::TagOf(request)];
  }

  // Sends `count` requests, and returns how many succeeded. After a failure nobody knows what
  // became of the request and what is left in the device, so the session is opened anew.
  uint32_t Drive(uint32_t driver, uint32_t count, const std::function<void*()>& reopen) {
    uint32_t succeeded = 0;
    void* session = reopen();
    for (uint32_t number = 1; number <= count; ++number) {
      const Bytes request = Request(driver, number, driver == 2 ? 0x30000 : 0x10);
      const Outcome outcome(session, request);
      const std::string where = "driver " + std::to_string(driver) + ", " + std::to_string(number);
      EXPECT_LE(Served(request), 1u) << where;
      if (outcome.status == 0) {
        ++succeeded;
        EXPECT_TRUE(outcome.Answers(request)) << where;
        EXPECT_EQ(Served(request), 1u) << where;
      } else {
        EXPECT_EQ(outcome.status, 1u);
        session = reopen();
      }
    }
    return succeeded;
  }

  void* Reopen(void* handle, KALO_DLL_STATUS (*init)(void**), KALO_DLL_STATUS (*cleanup)(void*)) {
    const std::lock_guard<std::mutex> lock(driversMutex_);
    EXPECT_TRUE(handle == nullptr || cleanup(handle) == 0);
    handle = nullptr;
    while (init(&handle) != 0) {
    }
    driver::TrimSinks(3);
    return handle;
  }

  static void* Reconnect(ClientSession& session, const _GUID* client) {
    session.DisconnectAllClients();
    while (session.dremSessions.empty()) {
      try {
        session.ConnectClient(client);
      } catch (...) {
        // Of a type that a caller with libc++ cannot name: it compares types by address.
      }
    }
    return &session;
  }

  zulisim::Engine engine_{{zulisim::DefaultClients(), false}};
  zulisim::Attachment attachment_;
  std::array<SumSink*, 2> sinks_{};
  std::mutex driversMutex_;
  std::mutex mutex_;
  std::map<uint32_t, uint32_t> served_;
};

TEST_F(FlapTest, no_reply_is_swapped_lost_or_counted_twice_while_the_device_comes_and_goes) {
  constexpr uint32_t kRequests = 8000;
  KALO_STATE_INIT_PARAMS api30 = {KALO_FIRMWARE_API_30, 0};
  KaloStateInit(&api30);
  ClientSession own[2];
  void* handles[3] = {};
  const auto kalo = [&](int i) {
    return [&, i] { return handles[i] = Reopen(handles[i], KaloInit3, KaloCleanup3); };
  };
  const std::function<void*()> reopens[] = {
      kalo(0), kalo(1), [&] { return handles[2] = Reopen(handles[2], FenuInit3, FenuCleanup3); },
      [&] { return Reconnect(own[0], &ClientSession::KALO_CLIENT_GUID); },
      [&] { return Reconnect(own[1], &ClientSession::SAB_CLIENT_GUID); }};

  std::atomic<bool> driving{true};
  uint32_t losses = 0;
  std::thread device([&] {
    std::mt19937 random(7);
    for (; driving; ++losses) {
      // The replies go with the device. Where they outlived it, any connection to the same client
      // could be handed those of another, which no library could tell.
      engine_.LoseDevice({random() % 4 == 0 ? 1u : 0u, ENODEV, false});
      std::this_thread::sleep_for(std::chrono::microseconds(100 + random() % 1500));
    }
  });
  uint32_t succeeded[std::size(reopens)] = {};
  std::vector<std::thread> drivers;
  for (uint32_t i = 0; i < std::size(reopens); ++i) {
    drivers.emplace_back([&, i] { succeeded[i] = Drive(i, kRequests, reopens[i]); });
  }
  for (std::thread& thread : drivers) thread.join();
  driving = false;
  device.join();

  for (const uint32_t count : succeeded) {
    EXPECT_GT(count, kRequests / 10);
    std::cout << count << " of " << kRequests << " exchanges succeeded\n";
  }
  EXPECT_GT(losses, 20u);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(KaloCleanup3(handles[i]), 0u);
  EXPECT_EQ(FenuCleanup3(handles[2]), 0u);
}

TEST_F(FlapTest, concurrent_initialisation_waits_for_a_slow_connection) {
  struct Slow : zulisim::OperationObserver {
    void OnOperation(const zulisim::OperationRecord& record) override {
      if (record.operation != Operation::kIoctl) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  } slow;
  engine_.AddObserver(&slow);
  KALO_STATE_INIT_PARAMS api32 = {KALO_FIRMWARE_API_32, 0};
  KaloStateInit(&api32);
  void* handles[8] = {};
  std::vector<std::thread> drivers;
  for (void*& handle : handles) drivers.emplace_back([&handle] { KaloInit3(&handle); });
  for (std::thread& thread : drivers) thread.join();
  engine_.RemoveObserver(&slow);
  EXPECT_EQ(std::set<void*>(std::begin(handles), std::end(handles)).size(), 1u);
  EXPECT_EQ(gKaloDllState.kaloRefCountA, 8u);
  EXPECT_EQ(engine_.Count(Operation::kIoctl), 1u);
  for (void* handle : handles) EXPECT_EQ(KaloCleanup3(handle), 0u);
  EXPECT_EQ(engine_.OpenDescriptors(), 0u);
}

// A reply moves on with the last of the reconnects, which no transfer follows: reading it away
// would be a guess, for the library knows no tags. After a reopen that failed there is no
// descriptor, nothing is sent and the call succeeds, which is the contract.
TEST_F(FlapTest, what_is_left_after_a_failure_stays_until_the_session_is_opened_anew) {
  void* handle = Reopen(nullptr, KaloInit3, KaloCleanup3);
  engine_.LoseDeviceAtNext(Operation::kRead, 5);
  EXPECT_EQ(Outcome(handle, Request(0, 1, 0)).status, 1u);
  EXPECT_EQ(driver::TagOf(Outcome(handle, Request(0, 2, 0)).reply), 1u);
  handle = Reopen(handle, KaloInit3, KaloCleanup3);
  EXPECT_TRUE(Outcome(handle, Request(0, 4, 0)).Answers(Request(0, 4, 0)));
  engine_.LoseDevice({1, ENOENT, false});
  EXPECT_EQ(Outcome(handle, Request(0, 5, 0)).status, 1u);
  const Outcome unsent(handle, Request(0, 6, 0));
  EXPECT_EQ(unsent.status, 0u);
  EXPECT_EQ(unsent.reply, Bytes(64));
  EXPECT_EQ(served_[5] + served_[6], 0u);
  KaloCleanup3(handle);
}

}  // namespace
