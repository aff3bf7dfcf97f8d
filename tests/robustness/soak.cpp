// A driver that runs for long: exchanges without end, a device that is lost now and then, sessions
// that are opened anew. Says what became of every exchange, and that nothing grows.
//
//   robustness_soak [EXCHANGES [LOSSES-PER-MILLION]]      (default: 1000000 1000)

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>

#include "tests/robustness/driver.h"
#include "tests/support/descriptors.h"

namespace {

using zulisim::Operation;

size_t ResidentKilobytes() {
  size_t size = 0, resident = 0;
  if (!(std::ifstream("/proc/self/statm") >> size >> resident)) std::abort();
  return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

// What a loss of the device does to the exchange that meets it.
enum Plan { kUndisturbed, kRecovered, kReplyLost, kReopenFailed, kExhausted, kPlanCount };
constexpr const char* kNames[kPlanCount] = {"undisturbed", "recovered", "reply lost",
                                            "reopen failed", "recovery exhausted"};

class Soak {
 public:
  Soak() : attachment_(engine_, {{"/data/Marvoleth.log", "/dev/null"}}) {
    engine_.SetResponder("KALO", driver::Answer);
    Open();
  }

  // One exchange; false when the library said or did something else than it must.
  bool Run(uint32_t number, Plan plan) {
    Disturb(number, plan);
    const driver::Bytes request = driver::Request(0, number, 0x10);
    const driver::Outcome outcome(handle_, request);
    engine_.ClearFaults();
    const bool good =
        plan <= kRecovered ? outcome.status == 0 && outcome.Answers(request) : outcome.status == 1;
    if (!good) {
      std::fprintf(stderr, "exchange %u, %s: status %u, %s\n", number, kNames[plan], outcome.status,
                   outcome.Answers(request) ? "answered" : "not answered");
    }
    return (plan <= kRecovered || (KaloCleanup3(handle_) == 0 && Open())) && good;
  }

  bool Close() { return KaloCleanup3(handle_) == 0 && engine_.OpenDescriptors() == 0; }

 private:
  bool Open() {
    const bool opened = KaloInit3(&handle_) == 0;
    driver::TrimSinks(1);
    return opened;
  }

  void Disturb(uint32_t number, Plan plan) {
    const Operation either = number % 2 == 0 ? Operation::kWrite : Operation::kRead;
    if (plan == kRecovered) engine_.LoseDeviceAtNext(either, 1 + number / 2 % 4);
    if (plan == kReplyLost) engine_.LoseDeviceAtNext(Operation::kRead, 1, {0, ENODEV, false});
    if (plan == kReopenFailed) engine_.LoseDeviceAtNext(Operation::kWrite, 1, {1, ENODEV, false});
    if (plan == kExhausted) engine_.LoseDeviceAtNext(Operation::kRead, 5);
  }

  zulisim::Engine engine_{{zulisim::DefaultClients(), false}};
  zulisim::InProcessDevice attachment_;
  void* handle_ = nullptr;
};

}  // namespace

int main(int argc, char** argv) {
  const uint32_t exchanges = argc > 1 ? static_cast<uint32_t>(std::atoi(argv[1])) : 1'000'000;
  const uint32_t losses = argc > 2 ? static_cast<uint32_t>(std::atoi(argv[2])) : 1000;
  if (argc > 3 || exchanges < 1000) {
    std::fprintf(stderr, "%s: 1000 exchanges or more and losses in a million are expected\n",
                 argv[0]);
    return 2;
  }
  Soak soak;
  std::mt19937 random(1);
  uint32_t counts[kPlanCount] = {};
  uint32_t wrong = 0;
  size_t settled[2] = {}, most[2] = {};
  for (uint32_t number = 1; number <= exchanges && wrong < 10; ++number) {
    const bool lost = random() % 1'000'000 < losses;
    const auto plan = static_cast<Plan>(lost ? 1 + random() % (kPlanCount - 1) : 0);
    ++counts[plan];
    if (!soak.Run(number, plan)) ++wrong;
    // The first tenth fills what is kept for good, such as buffers and the heap's own books.
    if (number < exchanges / 10 || number % (exchanges / 100) != 0) continue;
    const size_t now[2] = {static_cast<size_t>(test::OpenDescriptors()), ResidentKilobytes()};
    for (int i = 0; i < 2; ++i) {
      if (settled[i] == 0) settled[i] = now[i];
      most[i] = std::max(most[i], now[i]);
    }
  }
  const bool closed = soak.Close();

  for (int plan = 0; plan < kPlanCount; ++plan) {
    std::printf("%-20s %9u exchanges, status %d\n", kNames[plan], counts[plan], plan > kRecovered);
  }
  std::printf("%-20s %9u exchanges\n", "not as planned", wrong);
  const char* const measures[] = {"descriptors", "KiB of memory"};
  for (int i = 0; i < 2; ++i) {
    std::printf("%-20s %9zu after a tenth, at most %zu\n", measures[i], settled[i], most[i]);
  }
  constexpr size_t kSlack = 256;  // KiB
  const bool flat = most[0] == settled[0] && most[1] <= settled[1] + kSlack;
  if (!flat) std::fprintf(stderr, "something grows\n");
  if (!closed) std::fprintf(stderr, "the last session did not close\n");
  return wrong == 0 && flat && closed ? 0 : 1;
}
