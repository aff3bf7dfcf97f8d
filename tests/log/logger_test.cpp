// Log messages: which are delivered, as what, to whom; and the clock and debug log beneath.

#include "log/logger.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <fstream>
#include <iomanip>
#include <thread>

#include "log/log_file.h"
#include "oscl/last_error.h"
#include "oscl/timing.h"
#include "tests/support/library_test.h"

namespace {

// What this program puts in the place of libc's clock and process id, and of the platform's log.
struct Clock {
  timespec resolution{0, 1};
  int resolutionResult = 0;
  timespec now{0, 0};
  int nowResult = 0;
};
std::optional<Clock> fakeClock;
int fakeProcessId = 0;
struct Printed {
  int priority;
  bool tagged;
  std::string format, text;
};
std::vector<Printed> printed;

}  // namespace

extern "C" {

int clock_getres(clockid_t id, timespec* out) noexcept {
  if (!fakeClock) return static_cast<int>(syscall(SYS_clock_getres, id, out));
  if (fakeClock->resolutionResult == 0) *out = fakeClock->resolution;
  return fakeClock->resolutionResult;
}

int clock_gettime(clockid_t id, timespec* out) noexcept {
  if (!fakeClock) return static_cast<int>(syscall(SYS_clock_gettime, id, out));
  if (fakeClock->nowResult == 0) *out = fakeClock->now;
  return fakeClock->nowResult;
}

pid_t getpid() noexcept {
  return fakeProcessId != 0 ? fakeProcessId : static_cast<pid_t>(syscall(SYS_getpid));
}

// The one in the program comes first, whatever else the platform has.
__attribute__((format(printf, 3, 4))) int __android_log_print(int priority, const char* tag,
                                                              const char* format, ...) {
  char text[256];
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  printed.push_back({priority, tag != nullptr, format, text});
  return length;
}
}

namespace test {
namespace {

void Say(const std::string& text, int level = 0) {
  Logger logger;
  logger.level = level;
  logger << text;
}

class Messages : public LibraryTest {};

TEST_F(Messages, above_the_threshold_are_dropped) {
  EXPECT_EQ(Logger().level, 0);
  for (const int threshold : {0, 99, 100, -1}) {
    Logger::logBase.level = threshold;
    for (const int level : {-1, 0, 1, 100}) {
      TakeRaw();
      Say("text", level);
      EXPECT_EQ(TakeRaw().size(), level <= threshold ? 1u : 0u) << level << " at " << threshold;
    }
  }
}

TEST_F(Messages, are_delivered_as_inserted_or_behind_a_decimal_prefix) {
  Say("abc\n");
  Say("");
  EXPECT_EQ(TakeRaw(), List("abc\n", ""));
  Logger::logBase.plainOutput = false;
  fakeProcessId = 1234;
  fakeClock = Clock{{0, 1}, 0, {0, 77}, 0};
  Say("x");
  fakeProcessId = 123456789;
  fakeClock->now = {12, 34};
  fakeClock->resolution = {0, 4};
  Say("x");
  fakeClock->nowResult = -1;
  Say("x");
  fakeClock.reset();
  EXPECT_EQ(TakeRaw(), List("[00001234] 77 x", "[123456789] 3000000008 x", "[123456789] 0 x"));
}

TEST_F(Messages, reach_every_sink_in_order_although_one_is_null) {
  std::ostringstream order;
  class Second : public StreamLogSink {
   public:
    using StreamLogSink::StreamLogSink;
    // At unload, when nobody is left to tell.
    ~Second() override { Say("end"); }
    void logMessage(const char* message) override { *stream << "(" << message << ")"; }
  };
  auto& sinks = Logger::logBase.sinks;
  sinks.insert(sinks.end(), {new StreamLogSink(&order), nullptr, new Second(&order)});
  Say("text");
  Say(std::string("cut\0off", 7));
  EXPECT_EQ(order.str(), "text(text)cut(cut)");
  // A null text is not inserted.
  sinks[1]->logMessage(nullptr);
  EXPECT_TRUE(order.bad());
}

TEST_F(Messages, never_trouble_the_code_that_logs) {
  auto& sinks = Logger::logBase.sinks;
  sinks.push_back(new Sink(this));
  sink->onLine = [&sinks] {
    errno = 99;
    sinks.push_back(nullptr);
    throw std::runtime_error("a sink's own");
  };
  for (const int error : {0, ENODEV}) {
    errno = error;
    Say("text");
    KaloStateInit(nullptr);
    EXPECT_EQ(errno, error);
  }
  EXPECT_EQ(TakeRaw().size(), 12u) << "both sinks have every line";
}

TEST_F(Messages, begin_with_the_standard_formats_whatever_earlier_ones_did) {
  for (int round = 0; round < 2; ++round) {
    Logger logger;
    logger << std::hex << std::setfill('*') << std::setw(6) << std::boolalpha << 255;
    logger.tie(&logger);
    logger.iword(40) = 1;
    logger.exceptions(std::ios::badbit);
    logger.setstate(std::ios::failbit);
    Logger meanwhile;
    meanwhile << std::setw(6) << 255 << true;
    EXPECT_EQ(meanwhile.tie(), nullptr);
    EXPECT_EQ(meanwhile.iword(40), 0);
    EXPECT_EQ(meanwhile.exceptions(), std::ios::goodbit);
  }
  EXPECT_EQ(TakeRaw(), List("   2551", "****ff", "   2551", "****ff"));
}

TEST_F(Messages, are_delivered_under_the_lock) {
  EnterCriticalSection(&Logger::logBase.lock);
  std::thread other([] { Say("text"); });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(TakeRaw(), Lines{});
  LeaveCriticalSection(&Logger::logBase.lock);
  other.join();
  EXPECT_EQ(TakeRaw(), Lines{"text"});
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

  FileLogSink((file + ".missing/log").c_str()).logMessage("dropped");
}

TEST(Counter, counts_ticks_of_the_clock_or_fails_and_writes_nothing) {
  const struct {
    Clock clock;
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
    fakeClock = clock;
    const auto check = [](auto query, LARGE_INTEGER expected) {
      LARGE_INTEGER value = -7;
      gLastError = 5;
      EXPECT_EQ(query(&value), expected == -7 ? 0 : 1);
      EXPECT_EQ(value, expected);
      EXPECT_EQ(OSCL_GetLastError(), expected == -7 ? 5u : 0u);
    };
    check(QueryPerformanceFrequency, frequency);
    check(OSCL_QueryPerformanceFrequency, frequency);
    check(QueryPerformanceCounter, counter);
    check(OSCL_QueryPerformanceCounter, counter);
    EXPECT_EQ(Logger::GetHighResolutionCounterTick(), std::max<int64_t>(counter, 0));
  }
  fakeClock.reset();  // the test runner reads the clock too, and libc++ does not bear its failure
}

TEST(DebugLog, shows_the_message_of_each_code) {
  for (const uint32_t code : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 12u, 13u, 14u, 15u,
                              16u, 17u, 0xFFFFFFFFu}) {
    ShowErrorInfo(code);
  }
  std::string texts;
  for (const Printed& line : printed) {
    texts += line.text + '|';
    EXPECT_EQ(line.format, "%s");
    EXPECT_EQ(line.priority, 3);
    EXPECT_FALSE(line.tagged);
  }
  EXPECT_EQ(texts,
            "|no space left for allocate|invalid parameter is found|invalid handle|the file "
            "already exists|the file not found|the file is read only|can't find key in registry "
            "file|can't find the value of the key in registry|registry file can't be open as "
            "read|registry file can't be written|registry operation fail|registry type unknown|"
            "unknown items found in registry file|registry key name not found|registry key ID not "
            "found|unknown error|unknown error|unknown error|");
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
  for (const Printed& line : printed) formats.push_back(line.format);
  EXPECT_EQ(formats,
            List("can't unlock the critical section\n", "can't lock the critical section\n",
                 "can't destroy the critical section\n"));
}
#endif

}  // namespace
}  // namespace test
