#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "log/logger.h"
#include "simulator/attachment.h"
#include "transport/client_session.h"

namespace {

using zulisim::Operation;

// Sums up what it is given, so that two sinks can be compared. Only the log's lock guards it.
class SumSink : public LogSink {
 public:
  void logMessage(const char* message) override {
    const std::string line = message;
    const size_t name = line.find(':');
    const size_t tag = line.find(": ");
    const bool whole = tag != std::string::npos && name < tag && line.size() > tag + 2;
    if (!whole) ++torn;
    sum = sum * 31 + std::hash<std::string>()(line);
    ++lines;
  }

  size_t sum = 0;
  size_t lines = 0;
  size_t torn = 0;
};

// The n-th request of a driver, in header words 0 and 3 and all over the body.
zulisim::Bytes Request(uint32_t driver, uint32_t number, uint32_t command) {
  zulisim::Bytes request(64);
  for (size_t offset = 0; offset < request.size(); offset += 4) {
    zulisim::SetWordAt(&request, offset, driver << 24 | number);
  }
  zulisim::SetWordAt(&request, zulisim::kCommandIdOffset, command);
  return request;
}

uint32_t TagOf(const zulisim::Bytes& message) { return *zulisim::WordAt(message, 12); }

// Every third request is answered with private data, which holds the tag as well.
zulisim::Reply Answer(const zulisim::Bytes& request) {
  if (TagOf(request) % 3 != 0) return zulisim::EchoReply(request);
  return zulisim::EchoReply(request, 0x80000001, zulisim::Bytes(request.end() - 16, request.end()));
}

class FlapTest : public testing::Test {
 protected:
  FlapTest() : attachment_(engine_, {{"/data/Marvoleth.log", "/dev/null"}}) {
    for (SumSink*& sink : sinks_) Logger::logBase.sinks.push_back(sink = new SumSink);
    for (const char* client : {"KALO", "FENU", "SAB"}) {
      engine_.SetResponder(client, [this](const zulisim::Bytes& request) {
        const std::lock_guard<std::mutex> lock(mutex_);
        ++served_[TagOf(request)];
        return Answer(request);
      });
    }
  }

  ~FlapTest() override {
    EXPECT_GT(sinks_[0]->lines, 0u);
    EXPECT_EQ(sinks_[0]->torn, 0u);
    EXPECT_EQ(sinks_[0]->lines, sinks_[1]->lines);
    EXPECT_EQ(sinks_[0]->sum, sinks_[1]->sum);
    for (LogSink* sink : Logger::logBase.sinks) delete sink;
    Logger::logBase.sinks.clear();
  }

  uint32_t Served(uint32_t tag) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return served_[tag];
  }

  // One exchange: its status, and with 0 the reply that came.
  static uint32_t Exchange(void* session, const zulisim::Bytes& request, zulisim::Bytes* reply,
                           zulisim::Bytes* privateData) {
    zulisim::Bytes input = request;
    reply->assign(64, 0);
    privateData->assign(16, 0);
    unsigned int length = 0;
    const uint32_t status =
        StartIoEx3(session, input.data(), 64, reply->data(), 64, privateData->data(), &length);
    privateData->resize(length);
    return status;
  }

  struct Tally {
    uint32_t succeeded = 0;
    uint32_t failed = 0;
  };

  // Sends `count` requests. After a failure nobody knows what became of the request and what is
  // left in the device, so the session is opened anew.
  Tally Drive(uint32_t driver, uint32_t command, uint32_t count,
              const std::function<void*()>& reopen) {
    Tally tally;
    void* session = reopen();
    zulisim::Bytes reply;
    zulisim::Bytes privateData;
    for (uint32_t number = 1; number <= count; ++number) {
      const zulisim::Bytes request = Request(driver, number, command);
      const uint32_t status = Exchange(session, request, &reply, &privateData);
      const uint32_t served = Served(TagOf(request));
      if (status == 0) {
        ++tally.succeeded;
        const zulisim::Reply due = Answer(request);
        EXPECT_EQ(reply, *due.message) << "of driver " << driver << ", request " << number;
        EXPECT_EQ(privateData, due.privateData.value_or(zulisim::Bytes()));
        EXPECT_EQ(served, 1u) << "of driver " << driver << ", request " << number;
      } else {
        ++tally.failed;
        EXPECT_EQ(status, 1u);
        EXPECT_LE(served, 1u);
        session = reopen();
      }
    }
    return tally;
  }

  // Gives the handle back and takes one anew. KaloInit3 registers a sink each time; those that have
  // served are taken away while the log's lock is held.
  void* Reopen(void* handle, KALO_DLL_STATUS (*init)(void**), KALO_DLL_STATUS (*cleanup)(void*)) {
    const std::lock_guard<std::mutex> lock(driversMutex_);
    EXPECT_TRUE(handle == nullptr || cleanup(handle) == 0);
    handle = nullptr;
    while (init(&handle) != 0) {
    }
    EnterCriticalSection(&Logger::logBase.lock);
    std::vector<LogSink*>& sinks = Logger::logBase.sinks;
    for (; sinks.size() > 3; sinks.pop_back()) delete sinks.back();
    LeaveCriticalSection(&Logger::logBase.lock);
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

 private:
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
  Tally tallies[std::size(reopens)];
  std::vector<std::thread> drivers;
  for (uint32_t driver = 0; driver < std::size(reopens); ++driver) {
    drivers.emplace_back([&, driver] {
      tallies[driver] = Drive(driver, driver == 2 ? 0x30000 : 0x10, kRequests, reopens[driver]);
    });
  }
  for (std::thread& driver : drivers) driver.join();
  driving = false;
  device.join();

  Tally all;
  for (const Tally& tally : tallies) {
    EXPECT_EQ(tally.succeeded + tally.failed, kRequests);
    EXPECT_GT(tally.succeeded, kRequests / 10);
    all.succeeded += tally.succeeded;
    all.failed += tally.failed;
  }
  EXPECT_GT(losses, 20u);
  EXPECT_GT(engine_.Count(Operation::kOpen), all.failed);
  std::cout << all.succeeded << " exchanges succeeded, " << all.failed << " failed, in " << losses
            << " losses of the device\n";
  for (int i = 0; i < 2; ++i) EXPECT_EQ(KaloCleanup3(handles[i]), 0u);
  EXPECT_EQ(FenuCleanup3(handles[2]), 0u);
}

TEST_F(FlapTest, concurrent_initialisation_waits_for_a_slow_connection) {
  class Slow : public zulisim::OperationObserver {
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
  for (std::thread& driver : drivers) driver.join();
  engine_.RemoveObserver(&slow);
  EXPECT_EQ(std::set<void*>(std::begin(handles), std::end(handles)).size(), 1u);
  EXPECT_EQ(gKaloDllState.kaloRefCountA, 8u);
  EXPECT_EQ(engine_.Count(Operation::kIoctl), 1u);
  for (void* handle : handles) EXPECT_EQ(KaloCleanup3(handle), 0u);
  EXPECT_EQ(engine_.OpenDescriptors(), 0u);
}

// The reply moves on with the last of the reconnects, which no transfer follows. Reading it away
// would be a guess: the library knows no tags.
TEST_F(FlapTest, a_reply_is_late_after_a_failure_until_the_session_is_opened_anew) {
  void* handle = Reopen(nullptr, KaloInit3, KaloCleanup3);
  zulisim::Bytes reply;
  zulisim::Bytes privateData;
  engine_.LoseDeviceAtNext(Operation::kRead, 5);
  EXPECT_EQ(Exchange(handle, Request(0, 1, 0), &reply, &privateData), 1u);
  EXPECT_EQ(Exchange(handle, Request(0, 2, 0), &reply, &privateData), 0u);
  EXPECT_EQ(TagOf(reply), 1u);
  handle = Reopen(handle, KaloInit3, KaloCleanup3);
  EXPECT_EQ(Exchange(handle, Request(0, 4, 0), &reply, &privateData), 0u);
  EXPECT_EQ(TagOf(reply), 4u);
  KaloCleanup3(handle);
}

// After a reopen that failed there is no descriptor, and the soft failure of the exchange is the
// contract: nothing is sent and the call succeeds.
TEST_F(FlapTest, commands_after_a_failed_reopen_succeed_without_being_sent) {
  void* handle = Reopen(nullptr, KaloInit3, KaloCleanup3);
  zulisim::Bytes reply;
  zulisim::Bytes privateData;
  engine_.LoseDevice({1, ENOENT, false});
  EXPECT_EQ(Exchange(handle, Request(0, 1, 0), &reply, &privateData), 1u);
  EXPECT_EQ(Exchange(handle, Request(0, 2, 0), &reply, &privateData), 0u);
  EXPECT_EQ(reply, zulisim::Bytes(64));
  EXPECT_EQ(Served(1) + Served(2), 0u);
  KaloCleanup3(handle);
}

}  // namespace
