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
    sum = sum * 31 + std::hash<std::string>()(message);
    ++lines;
  }

  size_t sum = 0, lines = 0;
};

constexpr uint32_t kRequests = 8000;

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
    EXPECT_EQ(sinks_[0]->lines, sinks_[1]->lines);
    EXPECT_EQ(sinks_[0]->sum, sinks_[1]->sum);
    driver::TrimSinks(0);
  }

  uint32_t Served(const Bytes& request) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return served_[driver::TagOf(request)];
  }

  // Sends requests, and says how many succeeded. After a failure nobody knows what became of the
  // request and what is left in the device, so the session is opened anew.
  void Drive(uint32_t driver, const std::function<void*()>& reopen) {
    uint32_t succeeded = 0;
    void* session = reopen();
    for (uint32_t number = 1; number <= kRequests; ++number) {
      const Bytes request = Request(driver, number, driver == 2 ? 0x30000 : 0x10);
      const Outcome outcome(session, request);
      const bool good = outcome.status == 0;
      EXPECT_TRUE(good ? outcome.Answers(request) : outcome.status == 1) << driver << ' ' << number;
      EXPECT_TRUE(Served(request) == 1 || (!good && Served(request) == 0))
          << driver << ' ' << number;
      if (good) {
        ++succeeded;
      } else {
        session = reopen();
      }
    }
    EXPECT_GT(succeeded, kRequests / 10);
    std::cout << succeeded << " of " << kRequests << " exchanges succeeded\n";
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
  zulisim::InProcessDevice attachment_;
  std::array<SumSink*, 2> sinks_{};
  std::mutex driversMutex_;
  std::mutex mutex_;
  std::map<uint32_t, uint32_t> served_;
};

TEST_F(FlapTest, no_reply_is_swapped_lost_or_counted_twice_while_the_device_comes_and_goes) {
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
  std::vector<std::thread> drivers;
  for (uint32_t i = 0; i < std::size(reopens); ++i) {
    drivers.emplace_back([&, i] { Drive(i, reopens[i]); });
  }
  for (std::thread& thread : drivers) thread.join();
  driving = false;
  device.join();

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

}  // namespace
