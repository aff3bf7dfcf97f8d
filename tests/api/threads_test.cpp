// What may run at once: initialisation and logging.

#include <atomic>
#include <thread>

#include "tests/support/library_test.h"

namespace test {
namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 25;

template <typename Function>
void InThreads(Function function) {
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) threads.emplace_back([=] { function(i); });
  for (std::thread& thread : threads) thread.join();
}

class Threads : public LibraryTest {};

TEST_F(Threads, share_the_sessions_that_initialisation_counts) {
  KALO_STATE_INIT_PARAMS params{0x30000, 1};
  KaloStateInit(&params);
  std::atomic<int> failures{0};
  InThreads([&failures](int) {
    for (int i = 0; i < kRounds; ++i) {
      void* handle = nullptr;
      if (KaloInit3(&handle) != 0 || handle == nullptr) ++failures;
    }
  });
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(state.kaloRefCountA, 1u);
  EXPECT_EQ(state.kaloRefCountB, kThreads * kRounds - 1u);
  EXPECT_EQ(Count(zulisim::Operation::kOpen), 2u);
  EXPECT_EQ(Logger::logBase.sinks.size(), 1u + kThreads * kRounds);
}

TEST_F(Threads, log_whole_lines) {
  InThreads([](int thread) {
    for (int i = 0; i < kRounds; ++i) {
      Logger line;
      line << "thread:" << thread << ": " << std::string(200, static_cast<char>('a' + thread));
    }
  });
  const Lines lines = TakeLog();
  EXPECT_EQ(lines.size(), static_cast<size_t>(kThreads * kRounds));
  for (const std::string& line : lines) {
    EXPECT_EQ(line, "thread: " + std::string(200, line.back()));
  }
}

}  // namespace
}  // namespace test
