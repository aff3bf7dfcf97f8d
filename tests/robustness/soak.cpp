// A driver that runs for long: exchanges without end, a device that is lost now and then, sessions
// that are opened anew. Says what became of every exchange, and that nothing grows.
//
//   robustness_soak [EXCHANGES [LOSSES-PER-MILLION]]      (default: 1000000 1000)

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "api/kalo_dll.h"
#include "log/logger.h"
#include "simulator/attachment.h"

namespace {

using zulisim::Operation;

struct Footprint {
  size_t descriptors = 0;
  size_t kilobytes = 0;
};

Footprint Measure() {
  Footprint now;
  DIR* folder = opendir("/proc/self/fd");
  while (readdir(folder) != nullptr) ++now.descriptors;
  closedir(folder);
  std::FILE* file = std::fopen("/proc/self/statm", "r");
  unsigned long size = 0;
  unsigned long resident = 0;
  if (std::fscanf(file, "%lu %lu", &size, &resident) != 2) std::abort();
  std::fclose(file);
  now.kilobytes = resident * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
  return now;
}

// What a loss of the device does to the exchange that meets it.
enum Outcome { kUndisturbed, kRecovered, kReplyLost, kReopenFailed, kExhausted, kOutcomeCount };
constexpr const char* kNames[kOutcomeCount] = {"undisturbed", "recovered", "reply lost",
                                               "reopen failed", "recovery exhausted"};

class Soak {
 public:
  Soak() : attachment_(engine_, {{"/data/Marvoleth.log", "/dev/null"}}) { Open(); }

  // One exchange; false when the library said or did something else than it must.
  bool Run(uint32_t number, Outcome planned) {
    Disturb(planned);
    std::memcpy(request_, &number, sizeof number);
    std::memset(reply_, 0, sizeof reply_);
    const uint32_t status =
        StartIoEx3(handle_, request_, sizeof request_, reply_, sizeof reply_, nullptr, nullptr);
    const bool succeeds = planned <= kRecovered;
    const bool answered = std::memcmp(request_, reply_, sizeof reply_) == 0;
    const bool good = status == (succeeds ? 0u : 1u) && (!succeeds || answered);
    if (!good) {
      std::fprintf(stderr, "exchange %u, %s: status %u, %s\n", number, kNames[planned], status,
                   answered ? "answered" : "not answered");
    }
    engine_.ClearFaults();
    if (succeeds) return good;
    return KaloCleanup3(handle_) == 0 && Open() && good;
  }

  bool Close() { return KaloCleanup3(handle_) == 0 && engine_.OpenDescriptors() == 0; }

 private:
  // KaloInit3 registers one more sink each time; nobody else logs, so one is enough.
  bool Open() {
    if (KaloInit3(&handle_) != 0) return false;
    std::vector<LogSink*>& sinks = Logger::logBase.sinks;
    for (; sinks.size() > 1; sinks.pop_back()) delete sinks.back();
    return true;
  }

  void Disturb(Outcome planned) {
    switch (planned) {
      case kUndisturbed:
      case kOutcomeCount:
        return;
      case kRecovered:
        ++turn_;
        return engine_.LoseDeviceAtNext(turn_ % 2 == 0 ? Operation::kWrite : Operation::kRead,
                                        1 + turn_ % 4);
      case kReplyLost:
        return engine_.LoseDeviceAtNext(Operation::kRead, 1, {0, ENODEV, false});
      case kReopenFailed:
        return engine_.LoseDeviceAtNext(Operation::kWrite, 1, {1, ENODEV, false});
      case kExhausted:
        return engine_.LoseDeviceAtNext(Operation::kRead, 5);
    }
  }

  zulisim::Engine engine_{{zulisim::DefaultClients(), false}};
  zulisim::Attachment attachment_;
  void* handle_ = nullptr;
  unsigned char request_[64] = {};
  unsigned char reply_[64] = {};
  uint32_t turn_ = 0;
};

bool NumberOf(const char* text, uint32_t* number) {
  char* end = nullptr;
  const unsigned long value = std::strtoul(text, &end, 10);
  *number = static_cast<uint32_t>(value);
  return *text >= '0' && *text <= '9' && *end == '\0' && value <= UINT32_MAX;
}

}  // namespace

int main(int argc, char** argv) {
  uint32_t exchanges = 1'000'000;
  uint32_t lossesPerMillion = 1000;
  if (argc > 3 || (argc > 1 && (!NumberOf(argv[1], &exchanges) || exchanges < 1000)) ||
      (argc > 2 && !NumberOf(argv[2], &lossesPerMillion))) {
    std::fprintf(stderr,
                 "%s: a number of exchanges (1000 or more) and of losses in a million are "
                 "expected\n",
                 argv[0]);
    return 2;
  }
  Soak soak;
  std::mt19937 random(1);
  uint32_t counts[kOutcomeCount] = {};
  uint32_t wrong = 0;
  Footprint settled;
  Footprint most;
  for (uint32_t number = 1; number <= exchanges; ++number) {
    const bool lost = random() % 1'000'000 < lossesPerMillion;
    const auto planned = static_cast<Outcome>(lost ? 1 + random() % (kOutcomeCount - 1) : 0);
    ++counts[planned];
    if (!soak.Run(number, planned) && ++wrong == 10) break;
    // The first tenth fills what is kept for good, such as buffers and the heap's own books.
    if (number == exchanges / 10) settled = most = Measure();
    if (number > exchanges / 10 && number % std::max(exchanges / 100, 1u) == 0) {
      const Footprint now = Measure();
      most.descriptors = std::max(most.descriptors, now.descriptors);
      most.kilobytes = std::max(most.kilobytes, now.kilobytes);
    }
  }
  const bool closed = soak.Close();

  for (int outcome = 0; outcome < kOutcomeCount; ++outcome) {
    std::printf("%-20s %9u exchanges, status %d\n", kNames[outcome], counts[outcome],
                outcome <= kRecovered ? 0 : 1);
  }
  std::printf("%-20s %9u exchanges\n", "not as planned", wrong);
  std::printf("descriptors          %9zu after a tenth, at most %zu\n", settled.descriptors,
              most.descriptors);
  std::printf("resident memory      %9zu KiB after a tenth, at most %zu KiB\n", settled.kilobytes,
              most.kilobytes);
  constexpr size_t kSlack = 256;  // KiB
  const bool flat =
      most.descriptors == settled.descriptors && most.kilobytes <= settled.kilobytes + kSlack;
  if (!flat) std::fprintf(stderr, "something grows\n");
  if (!closed) std::fprintf(stderr, "the last session did not close\n");
  return wrong == 0 && flat && closed ? 0 : 1;
}
