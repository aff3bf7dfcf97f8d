// Tests which log messages are delivered, in which form and to which sinks. Also tests the clock
// and the debug log.

#include "log/logger.h"

#include <pthread.h>
#include <time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <thread>

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
std::vector<std::string> debugLog;
// Counts the calls on the log's lock. While `lockFails` is true, they fail.
std::atomic<int> locked{0}, unlocked{0}, destroyed{0};
std::atomic<bool> lockFails{false};

bool Fails(const pthread_mutex_t* mutex, std::atomic<int>& calls) {
  if (mutex != &Logger::logBase.lock) return false;
  ++calls;
  return lockFails;
}

}  // namespace

ZULISIM_HOOK(int, pthread_mutex_lock, pthread_mutex_t* mutex) {
  return Fails(mutex, locked) ? EINVAL : Real_pthread_mutex_lock(mutex);
}

ZULISIM_HOOK(int, pthread_mutex_unlock, pthread_mutex_t* mutex) {
  return Fails(mutex, unlocked) ? EPERM : Real_pthread_mutex_unlock(mutex);
}

ZULISIM_HOOK(int, pthread_mutex_destroy, pthread_mutex_t* mutex) {
  return Fails(mutex, destroyed) ? EBUSY : Real_pthread_mutex_destroy(mutex);
}

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
  debugLog.emplace_back(text);
  return length;
}

namespace {

void Say(const std::string& text, int level = 0) {
  Logger logger;
  logger.level = level;
  logger << text;
}

using testing::ElementsAre;
using testing::MatchesRegex;

class Messages : public LibraryTest {};

TEST_F(Messages, above_the_threshold_are_dropped) {
  EXPECT_EQ(Logger().level + Logger::logBase.level, 0);
  for (const int threshold : {0, -1}) {
    Logger::logBase.level = threshold;
    for (const int level : {-1, 0, 1}) Say(std::to_string(level), level);
  }
  EXPECT_EQ(TakeRaw(), List("", "-1", "0", "-1"));
  for (const int threshold : {99, 100}) {
    Logger::logBase.level = threshold;
    FenuCleanup();
    EXPECT_EQ(TakeRaw().empty(), threshold == 99) << "all its lines are detailed";
  }
}

TEST_F(Messages, are_delivered_as_inserted_or_behind_a_decimal_prefix) {
  Say("abc\n");
  Logger::logBase.plainOutput = false;
  Say("x");
  EXPECT_THAT(TakeRaw(), ElementsAre("abc\n", MatchesRegex("\\[[0-9]{8,}\\] [0-9]{9,} x")));
}

TEST_F(Messages, reach_every_sink_whole_and_in_order) {
  std::ostringstream order;
  class WritingSink : public StreamLogSink {
   public:
    using StreamLogSink::StreamLogSink;
    // Logs while the library is unloaded, when no sink is left.
    ~WritingSink() override { Say("end"); }
    void logMessage(const char* message) override {
      StreamLogSink::logMessage(message);
      *const_cast<char*>(message) = '!';
    }
  };
  auto& sinks = Logger::logBase.sinks;
  sinks.insert(sinks.begin(), {new WritingSink(&order), nullptr, new WritingSink(&order)});
  sinks.push_back(new StreamLogSink(&order));
  struct DeletedSink : StreamLogSink {
    using StreamLogSink::StreamLogSink;
    ~DeletedSink() override { logMessage("(deleted)"); }
  };
  sink->onLine = [&] {
    order << "(test)";
    sinks.push_back(new WritingSink(&order));
    // A driver may end a log of its own at any time.
    Logger::LogBase().sinks.push_back(new DeletedSink(&order));
  };
  const std::string text = "a text that no string keeps within itself";
  Say(text + '\0' + "off");
  EXPECT_EQ(TakeRaw(), List(text));
  EXPECT_EQ(order.str(), text + text + "(test)(deleted)" + text + text);
}

TEST_F(Messages, do_not_affect_the_code_that_logs) {
  Logger::logBase.sinks.push_back(new Sink(this));
  sink->onLine = [] {
    errno = 99;
    Logger::logBase.sinks.push_back(nullptr);
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
  Lines failures = {"can't destroy the critical section\n"};
  for (int i = 0; i < 3; ++i) {
    failures.push_back("can't lock the critical section\n");
    failures.push_back("can't unlock the critical section\n");
  }
  EXPECT_EQ(debugLog, failures);
  lockFails = false;
  std::filesystem::remove_all(std::filesystem::path(LogFile()).parent_path());
  errno = ENODEV;
  KaloInit();
  EXPECT_EQ(errno, ENODEV) << "a log file that cannot be opened";
}

TEST_F(Messages, take_and_release_the_lock_once_each_with_or_without_a_sink) {
  ClientSession session;
  session.ConnectClient(&ClientSession::KALO_CLIENT_GUID);
  EXPECT_EQ(locked, 0) << "every message was above the threshold";
  Bytes message = Message(0x10);
  std::vector<LogSink*> sinks;
  sinks.swap(Logger::logBase.sinks);
  sink->onLine = [] { EXPECT_EQ(pthread_mutex_trylock(&Logger::logBase.lock), EBUSY); };
  for (const size_t lines : {0, 6}) {
    // After a driver has appended a sink itself, the first statement checks for one again.
    KaloStateInit(nullptr);
    TakeRaw();
    locked = unlocked = 0;
    StartIoEx3(&session, message.data(), 32, message.data(), 32, nullptr, nullptr);
    Say("a driver's own");
    Say("above the threshold", 1);
    EXPECT_EQ(locked, 6);
    EXPECT_EQ(unlocked, 6);
    EXPECT_EQ(TakeRaw().size(), lines);
    if (lines == 0) sinks.swap(Logger::logBase.sinks);
  }
  // An initialisation also takes the lock to append its sink.
  locked = unlocked = 0;
  KaloInit();
  EXPECT_EQ(static_cast<size_t>(locked), TakeRaw().size() + 1);
  EXPECT_EQ(unlocked, locked);
}

// A sink cannot be deleted safely while one is being called.
TEST_F(Messages, let_a_sink_end_the_process) {
  struct Last : LogSink {
    ~Last() override { _exit(static_cast<int>(gKaloDllState.kaloRefCountA)); }
    void logMessage(const char*) override {}
  };
  struct First : Last {
    // The log's base is destroyed before the state.
    ~First() override { gKaloDllState.kaloRefCountA += 4; }
  };
  const std::string silent = "silent", logs = "logs", ends = "ends in a sink";
  for (const std::string& process : {silent, logs, ends}) {
    EXPECT_EXIT(
        {
          state.kaloRefCountA = 5;
          auto& sinks = Logger::logBase.sinks;
          sinks.insert(sinks.end(), {new First, new Last});
          if (process == ends) {
            sink->onLine = [this] {
              // When locking fails, the statement of another thread must have been delivered before
              // this one.
              sink->onLine = nullptr;
              lockFails = true;
              std::thread([] { Say("text"); }).join();
              exit(3);
            };
          }
          if (process != silent) Say("text");
          if (process == logs) {
            lockFails = true;
            Say("text");
            lockFails = false;
          }
          exit(3);
        },
        testing::ExitedWithCode(process == ends ? 3 : 9), "");
  }
}

TEST_F(Messages, of_the_child_that_a_sink_forks_are_delivered) {
  sink->onLine = [this] {
    sink->onLine = nullptr;
    const pid_t child = fork();
    if (child == 0) {
      alarm(20);
      Say("child");
      int process = 0;
      std::sscanf(TakeRaw().at(1).c_str(), "[%d]", &process);
      _exit(process == getpid() ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  };
  Logger::logBase.plainOutput = false;
  Say("parent");
  EXPECT_EQ(TakeRaw().size(), 1u);
}

TEST_F(Messages, go_to_a_file_that_is_appended_to_and_complete) {
  const std::string file = LogFile() + ".2";
  std::ofstream(file) << "before ";
  FileLogSink one(file.c_str());
  FileLogSink two(file.c_str());
  one.logMessage("one ");
  two.logMessage("two ");
  one.logMessage(nullptr);
  one.logMessage("lost");
  std::stringstream text;
  text << std::ifstream(file).rdbuf();
  EXPECT_EQ(text.str(), "before one two ");
  FileLogSink((file + ".missing/log").c_str()).logMessage("dropped");
  FileLogSink(nullptr).logMessage("dropped");
  StreamLogSink(&text).logMessage(nullptr);
  EXPECT_TRUE(text.bad());
  std::stringstream path;
  EXPECT_TRUE(DetermineLogFilePath(path));
  EXPECT_EQ(path.str(), std::string("/data/Marvoleth.log\0", 20));
}

TEST(Counter, counts_ticks_of_the_clock_or_fails_and_writes_nothing) {
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
  timespec now;
  ASSERT_EQ(clock_gettime(CLOCK_MONOTONIC, &now), 0);
  EXPECT_NEAR((now.tv_sec * 1e9 + now.tv_nsec) / 7, counter, frequency) << "within a second";
}

TEST(SleepMs, takes_microseconds) {
  const auto begin = std::chrono::steady_clock::now();
  OSCL_SleepMs(2000);
  const auto slept = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(slept, std::chrono::milliseconds(2));
  EXPECT_LT(slept, std::chrono::seconds(1));
}

TEST(DebugLog, shows_the_message_of_each_code) {
  for (uint32_t code = 0; code <= 17; ++code) ShowErrorInfo(code);
  ShowErrorInfo(0xFFFFFFFF);
  std::string all;
  for (const std::string& text : debugLog) all += text + '|';
  EXPECT_EQ(all,
            "|no space left for allocate|invalid parameter is found|invalid handle|the file "
            "already exists|the file not found|the file is read only|can't find key in registry "
            "file|can't find the value of the key in registry|registry file can't be open as "
            "read|registry file can't be written|registry operation fail|registry type unknown|"
            "unknown items found in registry file|registry key name not found|registry key ID not "
            "found|unknown error|unknown error|unknown error|");
}

}  // namespace
}  // namespace test
