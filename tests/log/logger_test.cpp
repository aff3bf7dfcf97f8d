// Tests which log messages are delivered, in which form and to which sinks. Also tests the clock
// and the debug log.

#include "log/logger.h"

#include <cstdarg>

#include "log/log_file.h"
#include "oscl/critical_section.h"
#include "oscl/last_error.h"
#include "oscl/timing.h"
#include "simulator/hooks/libc.h"
#include "tests/support/library_test.h"

namespace test {

using zulisim::hooks::LibcFunction;

namespace {

// This program replaces functions of libc and of the platform's log. These variables hold what the
// replacements return and receive.
std::optional<timespec> resolution;
std::string debugLog;  // a '|' follows each text
// Counts the calls on the log's lock. While `lockFails` is true, they fail.
std::atomic<int> lockCalls{0};
std::atomic<bool> lockFails{false};

bool Fails(const pthread_mutex_t* mutex) {
  if (mutex != &Logger::logBase.lock) return false;
  ++lockCalls;
  return lockFails;
}

}  // namespace

#define LOCK_HOOK(name)                                \
  ZULISIM_HOOK(int, name, pthread_mutex_t* mutex) {    \
    return Fails(mutex) ? EINVAL : Real_##name(mutex); \
  }
LOCK_HOOK(pthread_mutex_lock)
LOCK_HOOK(pthread_mutex_unlock)
LOCK_HOOK(pthread_mutex_destroy)

ZULISIM_HOOK(int, clock_getres, clockid_t id, timespec* out) {
  if (!resolution) return Real_clock_getres(id, out);
  *out = *resolution;
  return 0;
}

// The program's definition takes precedence over the platform's.
extern "C" __attribute__((format(printf, 3, 4))) int __android_log_print(int priority,
                                                                         const char* tag,
                                                                         const char* format, ...) {
  char text[256];
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  EXPECT_TRUE(priority == 3 && tag == nullptr);
  errno = 99;
  debugLog += std::string(text) + '|';
  return length;
}

namespace {

void Say(const std::string& text) { Logger() << text; }

using testing::ElementsAre;
using testing::MatchesRegex;

class Messages : public LibraryTest {};

TEST_F(Messages, reach_every_sink_whole_and_in_order) {
  // Never destroyed, because the library deletes sinks when it is unloaded.
  static auto& order = *new std::ostringstream;
  struct WritingSink : StreamLogSink {
    using StreamLogSink::StreamLogSink;
    ~WritingSink() override { *stream << "(deleted)"; }
    void logMessage(const char* message) override {
      StreamLogSink::logMessage(message);
      *const_cast<char*>(message) = '!';
    }
  };
  auto& sinks = Logger::logBase.sinks;
  sinks.insert(sinks.begin(), {new WritingSink(&order), nullptr, new WritingSink(&order)});
  sink->onLine = [&] {
    order << "(test)";
    sinks.push_back(new WritingSink(&order));
    // A driver may end a log of its own at any time.
    Logger::LogBase().sinks.push_back(new WritingSink(&order));
  };
  const std::string text = "a text that no string keeps within itself";
  Say(text + '\0' + "off");
  EXPECT_THAT(TakeRaw(), ElementsAre(text));
  EXPECT_EQ(order.str(), text + text + "(test)(deleted)" + text);
}

TEST_F(Messages, do_not_affect_the_code_that_logs) {
  Logger::logBase.sinks.push_back(new Sink(this));
  sink->onLine = [] {
    errno = 99;
    throw 42;
  };
  for (const bool fails : {false, true}) {
    lockFails = fails;
    errno = ENODEV;
    if (fails) DeleteCriticalSection(&Logger::logBase.lock);
    Say("text");
    KaloStateInit(nullptr);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_EQ(TakeRaw().size(), 6u) << "both sinks have every line";
  }
  EXPECT_THAT(debugLog, MatchesRegex("can't destroy the critical section\n\\|"
                                     "(can't lock the critical section\n\\|"
                                     "can't unlock the critical section\n\\|){3}"));
  std::filesystem::create_directory(logFile);
  errno = ENODEV;
  KaloInit();
  EXPECT_EQ(errno, ENODEV) << "a log file that cannot be opened";
}

TEST_F(Messages, take_the_lock_once_each_with_or_without_a_sink_unless_above_the_threshold) {
  EXPECT_EQ(Logger().level + std::exchange(Logger::logBase.level, 99), 0);
  auto sinks = std::exchange(Logger::logBase.sinks, {});
  sink->onLine = [] { EXPECT_EQ(pthread_mutex_trylock(&Logger::logBase.lock), EBUSY); };
  for (const size_t lines : {0, 3}) {
    // After a driver has appended a sink itself, the first statement checks for one again.
    KaloStateInit(nullptr);
    TakeRaw();
    lockCalls = 0;
    KaloStateInit(nullptr);
    Say("a driver's own");
    std::make_unique<Logger>()->level = 100;
    FenuCleanup();  // all its messages have the level 100
    EXPECT_EQ(lockCalls, 2 * 3);
    EXPECT_EQ(TakeRaw().size(), lines);
    if (lines == 0) sinks.swap(Logger::logBase.sinks);
  }
  Logger::logBase.level = -1;
  Say("above a negative threshold");
  // An initialisation also takes the lock to append its sink, and sets the threshold to 0.
  lockCalls = 0;
  KaloInit();
  EXPECT_EQ(static_cast<size_t>(lockCalls), 2 * (TakeRaw().size() + 1));
}

// A sink cannot be deleted safely while one is being called.
TEST_F(Messages, let_a_sink_end_the_process) {
  struct Last : LogSink {
    ~Last() override {
      Say("when no sink is left");
      _exit(static_cast<int>(gKaloDllState.kaloRefCountA));
    }
    void logMessage(const char*) override { gKaloDllState.kaloRefCountA = 5; }
  };
  struct First : Last {
    // The log's base is destroyed before the state.
    ~First() override { gKaloDllState.kaloRefCountA += 4; }
  };
  for (const std::string process : {"locks", "cannot lock", "ends in a sink"}) {
    EXPECT_EXIT(
        {
          auto& sinks = Logger::logBase.sinks;
          sinks.insert(sinks.end(), {new First, new Last});
          if (process == "ends in a sink") {
            sink->onLine = [this] {
              // When locking fails, the statement of another thread must have been delivered before
              // this one.
              sink->onLine = nullptr;
              lockFails = true;
              std::thread([] { Say("text"); }).join();
              exit(3);
            };
          }
          lockFails = process == "cannot lock";
          Say("text");
          lockFails = false;
          exit(3);
        },
        testing::ExitedWithCode(process == "ends in a sink" ? 3 : 9), "");
  }
}

TEST_F(Messages, have_a_decimal_prefix_on_request_also_in_a_child_that_a_sink_forks) {
  sink->onLine = [this] {
    sink->onLine = nullptr;
    EXPECT_EXIT(
        {
          alarm(20);
          Say("child");
          _exit(std::stoi(TakeRaw().at(1).substr(1)) == getpid() ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
  };
  Logger::logBase.plainOutput = false;
  Say("parent\n");
  EXPECT_THAT(TakeRaw(), ElementsAre(MatchesRegex("\\[[0-9]{8,}\\] [0-9]{9,} parent\n")));
}

TEST_F(Messages, go_to_a_file_that_is_appended_to_and_complete) {
  std::ofstream(logFile) << "before ";
  FileLogSink one(logFile.c_str()), two(logFile.c_str());
  one.logMessage("one ");
  two.logMessage("two ");
  one.logMessage(nullptr);
  one.logMessage("lost");
  std::stringstream text, path;
  text << std::ifstream(logFile).rdbuf();
  EXPECT_EQ(text.str(), "before one two ");
  FileLogSink((logFile + "/missing").c_str()).logMessage("dropped");
  FileLogSink(nullptr).logMessage("dropped");
  StreamLogSink(&text).logMessage(nullptr);
  EXPECT_TRUE(text.bad());
  EXPECT_TRUE(DetermineLogFilePath(path));
  EXPECT_EQ(path.str(), std::string("/data/Marvoleth.log\0", 20));
}

TEST(Timing, counts_ticks_of_a_usable_clock) {
  LARGE_INTEGER frequency = -7, counter = -7;
  for (const timespec unusable : {timespec{1, 5}, timespec{0, 0}}) {
    resolution = unusable;
    EXPECT_EQ(OSCL_QueryPerformanceFrequency(&frequency), 0);
    EXPECT_EQ(OSCL_QueryPerformanceCounter(&counter), 0);
    EXPECT_EQ(frequency + counter + Logger::GetHighResolutionCounterTick(), -14);
  }
  resolution = {0, 7};
  EXPECT_EQ(OSCL_QueryPerformanceFrequency(&frequency), 1);
  EXPECT_EQ(frequency, 142857142);
  EXPECT_EQ(OSCL_QueryPerformanceCounter(&counter), 1);
  const int64_t nanoseconds = std::chrono::steady_clock::now().time_since_epoch().count();
  EXPECT_NEAR(nanoseconds / 7, counter, frequency) << "within a second";
}

TEST(DebugLog, shows_the_message_of_each_code) {
  for (uint32_t code = 0; code <= 17; ++code) ShowErrorInfo(code);
  ShowErrorInfo(0xFFFFFFFF);
  EXPECT_EQ(debugLog,
            "|no space left for allocate|invalid parameter is found|invalid handle|the file "
            "already exists|the file not found|the file is read only|can't find key in registry "
            "file|can't find the value of the key in registry|registry file can't be open as "
            "read|registry file can't be written|registry operation fail|registry type unknown|"
            "unknown items found in registry file|registry key name not found|registry key ID not "
            "found|unknown error|unknown error|unknown error|");
}

}  // namespace
}  // namespace test
