// Drivers run at the same time, without waiting for each other, while the device is lost again and
// again. They create and destroy sessions, exchange messages, log, and initialise the library.
// KALODLL_FLAP_REQUESTS sets the number of requests of each driver.

#include <unistd.h>

#include <array>
#include <atomic>
#include <fstream>
#include <random>
#include <thread>

#include "tests/support/descriptors.h"
#include "tests/support/library_test.h"

namespace {

using zulisim::Bytes;
using zulisim::Operation;

// Every third reply has private data, which contains the tag of the request.
zulisim::Reply Answer(const Bytes& request) {
  if (*zulisim::WordAt(request, 12) % 3 != 0) return zulisim::EchoReply(request);
  return zulisim::EchoReply(request, 0x80000001, Bytes(request.begin(), request.begin() + 16));
}

// Computes a checksum of its lines, so that two sinks can be compared. Only the log's lock protects
// it.
struct SumSink : LogSink {
  void logMessage(const char* message) override {
    sum = sum * 31 + std::hash<std::string>()(message);
    ++lines;
  }

  size_t sum = 0, lines = 0;
};

// The client of each driver.
constexpr const _GUID* kClients[] = {
    &ClientSession::FENU_CLIENT_GUID, &ClientSession::KALO_CLIENT_GUID,
    &ClientSession::SAB_CLIENT_GUID, &ClientSession::KALO_CLIENT_GUID};

size_t ResidentKilobytes() {
  size_t size = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> size >> resident;
  return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

class FlapTest : public testing::Test, zulisim::OperationObserver {
 protected:
  FlapTest() {
    engine_.AddObserver(this);
    for (const char* client : {"KALO", "FENU", "SAB"}) {
      engine_.SetResponder(client, [this](const Bytes& request) {
        ++served_[request[3]];
        return Answer(request);
      });
    }
  }

  void OnOperation(const zulisim::OperationRecord& record) override {
    if (record.error != 0 && record.operation <= Operation::kIoctl) ++failedConnections_;
  }

  // Uses each session for up to 16 requests.
  void Drive(uint32_t who) {
    const char* const given = getenv("KALODLL_FLAP_REQUESTS");
    const auto requests = static_cast<uint32_t>(given != nullptr ? std::atoi(given) : 5000);
    uint32_t succeeded = 0, sessions = 0;
    for (uint32_t number = 1; number <= requests || losses_ < 10;) {
      ClientSession session;
      while (session.dremSessions.empty()) {
        try {
          session.ConnectClient(kClients[who]);
        } catch (...) {
          // A caller with libc++ cannot name the type, because libc++ compares types by address.
        }
      }
      // After a failure it is unknown whether the request was served.
      while (Exchange(who, number, &session) && ++succeeded && ++number % 16 != 0) {
      }
      ++number;
      if (++sessions % 4 == 0) Initialise();
    }
    EXPECT_GT(succeeded, requests / 10);
  }

  // KaloInit3 registers a sink each time. Removes all but the first three.
  void Initialise() {
    void* handle = nullptr;
    if (KaloInit3(&handle) == 0) ++handles_;
    EnterCriticalSection(&Logger::logBase.lock);
    std::vector<LogSink*>& sinks = Logger::logBase.sinks;
    for (; sinks.size() > 3; sinks.pop_back()) delete sinks.back();
    LeaveCriticalSection(&Logger::logBase.lock);
  }

  bool Exchange(uint32_t who, uint32_t number, ClientSession* session) {
    Logger() << "driver " << who << ", request " << number;
    const uint32_t tag = who << 24 | number;
    Bytes request = test::Message(0x10, 64, 0, tag, tag), reply(64), privateData(16);
    const zulisim::Reply due = Answer(request);
    unsigned int length = 0;
    const uint32_t before = served_[who];
    const KALO_DLL_STATUS status =
        StartIoEx3(session, request.data(), 64, reply.data(), 64, privateData.data(), &length);
    privateData.resize(length);
    const bool good = status == KALO_DLL_STATUS_SUCCESS;
    const uint32_t served = served_[who] - before;
    EXPECT_TRUE(served == 1 || (!good && served == 0)) << who << ' ' << number;
    EXPECT_EQ(status, good ? 0u : 1u);
    if (good) {
      EXPECT_EQ(reply, *due.message);
      EXPECT_EQ(privateData, due.privateData.value_or(Bytes()));
    }
    return good;
  }

  zulisim::Engine engine_{{zulisim::DefaultClients(), false}};
  zulisim::InProcessDevice attachment_{engine_, {{"/data/Marvoleth.log", "/dev/null"}}};
  std::atomic<bool> driving_{true};
  std::atomic<uint32_t> handles_{0}, failedConnections_{0}, losses_{0};
  std::array<SumSink*, 2> sinks_{};
  std::array<std::atomic<uint32_t>, std::size(kClients)> served_{};
};

TEST_F(FlapTest, no_reply_is_swapped_lost_or_counted_twice) {
  KALO_STATE_INIT_PARAMS api32 = {KALO_FIRMWARE_API_32, 0};
  KaloStateInit(&api32);
  // The first sink comes while another thread logs.
  std::thread logs([this] {
    while (handles_ == 0) KaloStateInit(nullptr);
  });
  Initialise();
  logs.join();
  for (SumSink*& sink : sinks_) Logger::logBase.sinks.push_back(sink = new SumSink);
  const long descriptors = test::OpenDescriptors();
  [[maybe_unused]] const size_t kilobytes = ResidentKilobytes();
  std::vector<std::thread> drivers;
  for (uint32_t i = 0; i < std::size(kClients); ++i) drivers.emplace_back([=] { Drive(i); });
  std::thread device([this] {
    std::mt19937 random(7);
    for (; driving_; ++losses_) {
      // A loss drops pending replies. Otherwise another connection to the same client could get
      // them, which no library could detect.
      engine_.LoseDevice({random() % 4 == 0 ? 1u : 0u, ENODEV, true});
      std::this_thread::sleep_for(std::chrono::microseconds(100 + random() % 1500));
    }
  });
  for (std::thread& driver : drivers) driver.join();
  driving_ = false;
  device.join();
  EXPECT_EQ(gKaloDllState.kaloRefCountA, handles_);
  EXPECT_GT(handles_, 1u);
  // By contract, a failed connection may leave its descriptor open.
  EXPECT_LE(test::OpenDescriptors(), descriptors + failedConnections_);
#if !defined __SANITIZE_ADDRESS__ && \
    !defined __SANITIZE_THREAD__  // the sanitizers keep freed memory
  // A failed connection also leaves its record. The threads' own memory needs a few MiB.
  EXPECT_LE(ResidentKilobytes(), kilobytes + 8192 + failedConnections_ / 16);
#endif
  EXPECT_GT(sinks_[0]->lines, 0u);
  EXPECT_EQ(sinks_[0]->lines, sinks_[1]->lines);
  EXPECT_EQ(sinks_[0]->sum, sinks_[1]->sum);
}

}  // namespace
