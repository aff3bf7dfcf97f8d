// Log messages: which are delivered, as what, to whom; and the clock and debug log beneath.

#include "log/logger.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <stdexcept>
#include <thread>
#include <vector>

#include "log/log_file.h"
#include "oscl/critical_section.h"
#include "oscl/last_error.h"
#include "oscl/timing.h"
#include "tests/log/fakes.h"
#include "tests/support/library_test.h"

namespace test {
namespace {

void Say(const std::string& text, int level = 0) {
  Logger logger;
  logger.level = level;
  logger << text;
}

class Messages : public LibraryTest {
 protected:
  ~Messages() override {
    fakes::clock.reset();
    fakes::processId.reset();
  }
};

TEST_F(Messages, above_the_threshold_are_dropped) {
  const struct {
    int level, threshold;
    bool delivered;
  } kCases[] = {{0, 0, true},     {1, 0, false},    {-1, 0, true},  {100, 0, false},
                {100, 100, true}, {100, 99, false}, {0, -1, false}, {-1, -1, true}};
  EXPECT_EQ(Logger().level, 0);
  TakeLog();
  for (const auto& [level, threshold, delivered] : kCases) {
    Logger::logBase.level = threshold;
    Say("text", level);
    EXPECT_EQ(TakeLog(), delivered ? Lines{"text"} : Lines{}) << level << " at " << threshold;
  }
}

TEST_F(Messages, are_delivered_as_inserted_or_behind_a_decimal_prefix) {
  Say("abc\n");
  Say("");
  EXPECT_EQ(TakeLog(), List("abc\n", ""));
  Logger::logBase.plainOutput = false;
  fakes::processId = 1234;
  fakes::clock = fakes::Clock{{0, 1}, 0, {0, 77}, 0};
  Say("x");
  fakes::processId = 123456789;
  fakes::clock->now = {12, 34};
  fakes::clock->resolution = {0, 4};
  Say("x");
  fakes::clock->nowResult = -1;
  Say("x");
  EXPECT_EQ(TakeLog(), List("[00001234] 77 x", "[123456789] 3000000008 x", "[123456789] 0 x"));
}

TEST_F(Messages, reach_every_sink_in_order_although_one_is_null) {
  Lines order;
  class Named : public LogSink {
   public:
    Named(Lines& order, const char* name) : order_(order), name_(name) {}
    void logMessage(const char* message) override { order_.push_back(name_ + message); }

   private:
    Lines& order_;
    const std::string name_;
  };
  auto& sinks = Logger::logBase.sinks;
  sinks.insert(sinks.end(), {new Named(order, "1:"), nullptr, new Named(order, "2:")});
  Say("text");
  Say(std::string("cut\0off", 7));
  EXPECT_EQ(order, List("1:text", "2:text", "1:cut", "2:cut"));
  for (size_t i = 1; i < 4; ++i) delete sinks[i];
  sinks.resize(1);
}

TEST_F(Messages, never_trouble_the_code_that_logs) {
  sink->onLine = [] {
    errno = 99;
    throw std::runtime_error("a sink's own");
  };
  for (const int error : {0, ENODEV}) {
    errno = error;
    Say("text");
    KaloStateInit(nullptr);
    EXPECT_EQ(errno, error);
  }
  EXPECT_EQ(TakeLog().size(), 6u);
}

TEST_F(Messages, begin_with_the_standard_formats_whatever_earlier_ones_did) {
  const auto disturb = [] {
    Logger logger;
    logger << std::hex << std::setfill('*') << std::setw(6) << std::boolalpha << 255;
    logger.tie(&logger);
    logger.iword(40) = 1;
    logger.exceptions(std::ios::badbit);
    logger.setstate(std::ios::failbit);
    Logger meanwhile;
    meanwhile << std::setw(6) << 255 << true;
    EXPECT_EQ(meanwhile.str(), "   2551");
    EXPECT_EQ(meanwhile.tie(), nullptr);
    EXPECT_EQ(meanwhile.iword(40), 0);
    EXPECT_EQ(meanwhile.exceptions(), std::ios::goodbit);
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 100; ++round) disturb();
    });
  }
  for (std::thread& thread : threads) thread.join();
  const Lines lines = TakeLog();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "   2551"), 400);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "****ff"), 400);
}

TEST_F(Messages, go_to_a_file_that_is_appended_to_and_complete) {
  std::stringstream path;
  EXPECT_TRUE(DetermineLogFilePath(path));
  EXPECT_EQ(path.str(), std::string("/data/Marvoleth.log\0", 20));
  const std::string file = LogFile() + ".2";
  std::ofstream(file) << "before ";
  FileLogSink one(file.c_str());
  FileLogSink two(file.c_str());
  one.logMessage("one ");
  two.logMessage("two ");
  one.logMessage(nullptr);
  EXPECT_TRUE(one.stream->bad());
  one.logMessage("lost");
  std::stringstream text;
  text << std::ifstream(file).rdbuf();
  EXPECT_EQ(text.str(), "before one two ");

  const std::string missing = LogFile() + ".missing/log";
  FileLogSink nowhere(missing.c_str());
  EXPECT_TRUE(nowhere.stream->fail());
  nowhere.logMessage("dropped");
  EXPECT_FALSE(std::filesystem::exists(missing));
}

TEST_F(Messages, go_to_a_stream_without_a_line_end) {
  std::ostringstream stream;
  {
    StreamLogSink target(&stream);
    target.logMessage("a");
    target.logMessage("b\n");
    target.logMessage(nullptr);
  }
  EXPECT_EQ(stream.str(), "ab\n");
  EXPECT_TRUE(stream.bad());
}

class Counter : public Messages {};

TEST_F(Counter, counts_ticks_of_the_clock_or_fails_and_writes_nothing) {
  const struct {
    fakes::Clock clock;
    LARGE_INTEGER frequency, counter;  // -7: not written
  } kCases[] = {
      {{{0, 1}, 0, {3, 5}, 0}, 1000000000, 3000000005},
      {{{0, 4000000}, 0, {3, 5}, 0}, 250, 750},
      {{{0, 999999999}, 0, {5, 0}, 0}, 1, 5},
      {{{0, 7}, 0, {0, 20}, 0}, 142857142, 2},
      {{{1, 0}, 0, {3, 5}, 0}, -7, -7},
      {{{1, 5}, 0, {3, 5}, 0}, -7, -7},
      {{{0, 0}, 0, {3, 5}, 0}, -7, -7},
      {{{0, 1}, -1, {3, 5}, 0}, -7, -7},
      {{{0, 1}, 0, {3, 5}, -1}, 1000000000, -7},
  };
  for (const auto& [clock, frequency, counter] : kCases) {
    fakes::clock = clock;
    for (const auto& [query, expected] : {std::make_pair(QueryPerformanceFrequency, frequency),
                                          std::make_pair(OSCL_QueryPerformanceFrequency, frequency),
                                          std::make_pair(QueryPerformanceCounter, counter),
                                          std::make_pair(OSCL_QueryPerformanceCounter, counter)}) {
      LARGE_INTEGER value = -7;
      gLastError = 5;
      EXPECT_EQ(query(&value), expected == -7 ? 0 : 1);
      EXPECT_EQ(value, expected);
      EXPECT_EQ(OSCL_GetLastError(), expected == -7 ? 5u : 0u);
    }
    EXPECT_EQ(Logger::GetHighResolutionCounterTick(), std::max<int64_t>(counter, 0));
  }
}

TEST(DebugLog, shows_the_message_of_each_code) {
  const char* const kMessages[] = {"",
                                   "no space left for allocate",
                                   "invalid parameter is found",
                                   "invalid handle",
                                   "the file already exists",
                                   "the file not found",
                                   "the file is read only",
                                   "can't find key in registry file",
                                   "can't find the value of the key in registry",
                                   "registry file can't be open as read",
                                   "registry file can't be written",
                                   "registry operation fail",
                                   "registry type unknown",
                                   "unknown items found in registry file",
                                   "registry key name not found",
                                   "registry key ID not found",
                                   "unknown error",
                                   "unknown error"};
  for (uint32_t code = 0; code < std::size(kMessages); ++code) ShowErrorInfo(code);
  ShowErrorInfo(0xFFFFFFFF);
  ASSERT_EQ(fakes::printed.size(), std::size(kMessages) + 1);
  for (size_t i = 0; i < fakes::printed.size(); ++i) {
    const fakes::Printed& line = fakes::printed[i];
    EXPECT_EQ(line.text, kMessages[std::min<size_t>(i, 17)]);
    EXPECT_EQ(line.format, "%s");
    EXPECT_EQ(line.priority, 3);
    EXPECT_FALSE(line.tagged);
  }
}

#ifndef __SANITIZE_THREAD__  // which reports the misuse itself
TEST(DebugLog, is_all_that_hears_of_a_failing_lock) {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
  CRITICAL_SECTION section;
  pthread_mutex_init(&section, &attributes);
  LeaveCriticalSection(&section);
  EnterCriticalSection(&section);
  EnterCriticalSection(&section);
  DeleteCriticalSection(&section);
  LeaveCriticalSection(&section);
  DeleteCriticalSection(&section);
  Lines formats;
  for (const fakes::Printed& line : fakes::printed) formats.push_back(line.format);
  EXPECT_EQ(formats,
            List("can't unlock the critical section\n", "can't lock the critical section\n",
                 "can't destroy the critical section\n"));
}
#endif

}  // namespace
}  // namespace test
