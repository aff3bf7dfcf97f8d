// Drivers run at the same time, without waiting for each other, while the device is lost again and
// again. They create and destroy sessions, exchange messages, log, and initialise the library.
// KALODLL_FLAP_REQUESTS sets the number of requests of each driver.

#include <array>

#include "tests/support/descriptors.h"
#include "tests/support/library_test.h"

// Contract: the last-error record is one for the process and takes no lock.
extern "C" const char* __tsan_default_suppressions() { return "race:SaveLastErrorInfo"; }

namespace {

using zulisim::Bytes;

// The client of each driver.
constexpr const _GUID* kClients[] = {
    &ClientSession::FENU_CLIENT_GUID, &ClientSession::KALO_CLIENT_GUID,
    &ClientSession::SAB_CLIENT_GUID, &ClientSession::KALO_CLIENT_GUID};

// Computes a checksum of its lines, so that two sinks can be compared. Only the log's lock protects
// it.
struct SumSink : LogSink {
  void logMessage(const char* message) override {
    sum = (sum + 1) * 31 + std::hash<std::string>()(message);
  }

  size_t sum = 0;
};

size_t ResidentKilobytes() {
  size_t size = 0, pages = 0;
  std::ifstream("/proc/self/statm") >> size >> pages;
  return pages * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

class FlapTest : public testing::Test {
 protected:
  FlapTest() {
    for (const char* client : {"KALO", "FENU", "SAB"}) {
      engine_.SetResponder(client, [this](const Bytes& request) {
        // Every third reply has private data, which contains the header of the request.
        std::optional<Bytes> data;
        if (request[12] % 3 == 0) data.emplace(request.begin(), request.begin() + 16);
        const uint32_t status = data ? zulisim::kRefusedStatus : 0;
        return served_[request[0]].emplace_back(zulisim::EchoReply(request, status, data));
      });
    }
  }

  // Uses each session for up to 16 requests.
  void Drive(uint32_t who) {
    const char* const given = getenv("KALODLL_FLAP_REQUESTS");
    const auto requests = static_cast<uint32_t>(given != nullptr ? std::atoi(given) : 5000);
    uint32_t number = 0, succeeded = 0;
    while (number < requests || losses_ < 10) {
      ClientSession session;
      const auto connect = [&] { session.ConnectClient(kClients[who]); };
      while (test::Thrown(connect) != "nothing") ++failures_;
      while (Exchange(who, ++number, &session) && ++succeeded && number % 16 != 0) {
      }
      Initialise();
    }
    EXPECT_GT(succeeded, requests / 10);
    --driving_;
  }

  // KaloInit3 registers a sink each time. Removes all but the first three.
  void Initialise() {
    void* handle = nullptr;
    ++(KaloInit3(&handle) == 0 ? handles_ : failures_);
    EnterCriticalSection(&Logger::logBase.lock);
    std::vector<LogSink*>& sinks = Logger::logBase.sinks;
    for (; sinks.size() > 3; sinks.pop_back()) delete sinks.back();
    LeaveCriticalSection(&Logger::logBase.lock);
  }

  // Returns true if the request succeeded. After a failure it is unknown whether it was served.
  bool Exchange(uint32_t who, uint32_t number, ClientSession* session) {
    Logger() << "driver " << who << ", request " << number;
    Bytes request = test::Message(0x10, 64, 0, who, number), reply(64), privateData(16);
    unsigned int length = 0;
    std::vector<zulisim::Reply>& served = served_[who];
    served.clear();
    const KALO_DLL_STATUS status =
        StartIoEx3(session, request.data(), 64, reply.data(), 64, privateData.data(), &length);
    EXPECT_LE(served.size(), 1u) << who << ' ' << number;
    EXPECT_LE(status, 1u);
    if (status != KALO_DLL_STATUS_SUCCESS) return false;
    privateData.resize(length);
    EXPECT_EQ(reply, *served.at(0).message);
    EXPECT_EQ(privateData, served[0].privateData.value_or(Bytes()));
    return true;
  }

  zulisim::Engine engine_{{zulisim::DefaultClients(), false}};
  zulisim::InProcessDevice attachment_{engine_, {{"/data/Marvoleth.log", "/dev/null"}}};
  std::atomic<uint32_t> driving_{std::size(kClients)}, handles_{0}, failures_{0}, losses_{0};
  // The replies to the current request of each driver.
  std::array<std::vector<zulisim::Reply>, std::size(kClients)> served_;
};

TEST_F(FlapTest, no_reply_is_swapped_lost_or_counted_twice) {
  gKaloDllState.firmwareApiVersion = KALO_FIRMWARE_API_32;
  // The first sink comes while another thread logs.
  std::thread logs([this] {
    while (handles_ == 0) KaloStateInit(nullptr);
  });
  Initialise();
  logs.join();
  std::array<SumSink*, 2> sinks;
  for (SumSink*& sink : sinks) Logger::logBase.sinks.push_back(sink = new SumSink);
  const long descriptors = test::OpenDescriptors();
  [[maybe_unused]] const size_t kilobytes = ResidentKilobytes();
  std::vector<std::thread> drivers;
  for (uint32_t i = 0; i < std::size(kClients); ++i) drivers.emplace_back([=] { Drive(i); });
  for (std::mt19937 random(7); driving_ != 0; ++losses_) {
    // A loss drops pending replies. Otherwise another connection to the same client could get them,
    // which no library could detect.
    engine_.LoseDevice({random() % 4 == 0 ? 1u : 0u, ENODEV, true});
    std::this_thread::sleep_for(std::chrono::microseconds(100 + random() % 1500));
  }
  for (std::thread& driver : drivers) driver.join();
  EXPECT_EQ(gKaloDllState.kaloRefCountA, handles_);
  EXPECT_GT(handles_, 1u);
  // By contract, a failed connection may leave its descriptor open.
  EXPECT_LE(test::OpenDescriptors(), descriptors + failures_);
#if !defined __SANITIZE_ADDRESS__ && !defined __SANITIZE_THREAD__
  // A failed connection also leaves its record. The threads' own memory needs a few MiB. The
  // sanitizers keep freed memory.
  EXPECT_LE(ResidentKilobytes(), kilobytes + 8192 + failures_ / 16);
#endif
  EXPECT_GT(sinks[0]->sum, 0u);
  EXPECT_EQ(sinks[0]->sum, sinks[1]->sum);
}

}  // namespace
