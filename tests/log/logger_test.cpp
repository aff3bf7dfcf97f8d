// Tests which log messages are delivered, in which form and to which sinks. Also tests the clock
// and the debug log.

#include "log/logger.h"

#include <dlfcn.h>
#include <sys/syscall.h>
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
#include "oscl/last_error.h"
#include "oscl/timing.h"
#include "tests/support/library_test.h"

namespace {

// This program replaces the functions for the clock's resolution and for the platform's log. These
// variables hold what the replacements return and receive.
std::optional<timespec> resolution;
std::vector<std::string> formats, texts;
// Counts the calls on the log's lock. While `lockFails` is true, they fail.
std::atomic<int> locked{0}, unlocked{0};
std::atomic<bool> lockFails{false};

using LockCall = int (*)(pthread_mutex_t*);

// Not local static variables: libc++ locks a mutex to initialise one.
std::atomic<LockCall> realLock{nullptr}, realUnlock{nullptr};

LockCall Real(std::atomic<LockCall>& function, const char* name) {
  if (function == nullptr) function = reinterpret_cast<LockCall>(dlsym(RTLD_NEXT, name));
  return function;
}

}  // namespace

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* mutex) {
  if (mutex == &Logger::logBase.lock) {
    ++locked;
    if (lockFails) return EINVAL;
  }
  return Real(realLock, "pthread_mutex_lock")(mutex);
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) {
  if (mutex == &Logger::logBase.lock) {
    ++unlocked;
    if (lockFails) return EPERM;
  }
  return Real(realUnlock, "pthread_mutex_unlock")(mutex);
}

int clock_getres(clockid_t id, timespec* out) {
  if (!resolution) return static_cast<int>(syscall(SYS_clock_getres, id, out));
  *out = *resolution;
  return 0;
}

// The program's definition takes precedence over the platform's.
__attribute__((format(printf, 3, 4))) int __android_log_print(int priority, const char* tag,
                                                              const char* format, ...) {
  char text[256];
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  EXPECT_TRUE(priority == 3 && tag == nullptr);
  errno = 99;
  formats.emplace_back(format);
  texts.emplace_back(text);
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

using testing::ElementsAre;
using testing::MatchesRegex;

class Messages : public LibraryTest {
 protected:
  void* handle_ = nullptr;
};

TEST_F(Messages, above_the_threshold_are_dropped) {
  EXPECT_EQ(Logger().level + Logger::logBase.level, 0);
  for (const int threshold : {0, -1}) {
    Logger::logBase.level = threshold;
    for (const int level : {-1, 0, 1}) Say(std::to_string(level), level);
  }
  EXPECT_EQ(TakeRaw(), List("", "-1", "0", "-1"));
}

TEST_F(Messages, are_delivered_as_inserted_or_behind_a_decimal_prefix) {
  Say("abc\n");
  Logger::logBase.plainOutput = false;
  Say("x");
  EXPECT_THAT(TakeRaw(), ElementsAre("abc\n", MatchesRegex("\\[[0-9]{8,}\\] [0-9]{9,} x")));
}

TEST_F(Messages, reach_every_sink_in_order_even_if_one_is_null) {
  std::ostringstream order;
  class Second : public StreamLogSink {
   public:
    using StreamLogSink::StreamLogSink;
    // Logs while the library is unloaded, when no sink is left.
    ~Second() override { Say("end"); }
    void logMessage(const char* message) override { *stream << "(" << message << ")"; }
  };
  auto& sinks = Logger::logBase.sinks;
  sinks.insert(sinks.end(), {new StreamLogSink(&order), nullptr, new Second(&order)});
  Say(std::string("cut\0off", 7));
  EXPECT_EQ(order.str(), "cut(cut)");
}

TEST_F(Messages, do_not_affect_the_code_that_logs) {
  Logger::logBase.sinks.push_back(new Sink(this));
  sink->onLine = [] {
    errno = 99;
    Logger::logBase.sinks.push_back(nullptr);
    throw 42;
  };
  errno = ENODEV;
  Say("text");
  KaloStateInit(nullptr);
  EXPECT_EQ(errno, ENODEV);
  EXPECT_EQ(TakeRaw().size(), 6u) << "both sinks have every line";
  std::filesystem::remove_all(std::filesystem::path(LogFile()).parent_path());
  errno = ENODEV;
  KaloInit();
  EXPECT_EQ(errno, ENODEV) << "a log file that cannot be opened";
}

TEST_F(Messages, take_and_release_the_lock_once_each_with_or_without_a_sink) {
  ClientSession session;
  session.ConnectClient(&ClientSession::KALO_CLIENT_GUID);
  Bytes message = Message(0x10);
  for (const bool withSink : {false, true}) {
    std::vector<LogSink*> sinks;
    if (!withSink) sinks.swap(Logger::logBase.sinks);
    // After a driver has appended a sink itself, the first statement checks for one again.
    KaloStateInit(nullptr);
    TakeRaw();
    locked = unlocked = 0;
    StartIoEx3(&session, message.data(), 32, message.data(), 32, nullptr, nullptr);
    Say("a driver's own");
    Say("above the threshold", 1);
    EXPECT_EQ(locked, 6);
    EXPECT_EQ(unlocked, 6);
    EXPECT_EQ(TakeRaw().size(), withSink ? 6u : 0u);
    if (!withSink) sinks.swap(Logger::logBase.sinks);
  }
  // An initialisation also takes the lock to append its sink.
  locked = unlocked = 0;
  KaloInit3(&handle_);
  EXPECT_EQ(static_cast<size_t>(locked), TakeRaw().size() + 1);
  EXPECT_EQ(unlocked, locked);
}

TEST_F(Messages, wait_for_the_thread_that_holds_the_lock_and_so_do_new_sinks) {
  EnterCriticalSection(&Logger::logBase.lock);
  const size_t sinks = Logger::logBase.sinks.size();
  locked = 0;
  std::thread other([this] { KaloInit3(&handle_); });
  while (locked == 0) std::this_thread::yield();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(Logger::logBase.sinks.size(), sinks);
  EXPECT_EQ(locked, 1);
  LeaveCriticalSection(&Logger::logBase.lock);
  other.join();
  EXPECT_EQ(Logger::logBase.sinks.size(), sinks + 1);
}

TEST_F(Messages, reach_a_sink_that_another_appends_meanwhile) {
  auto* appended = new Sink(this);
  sink->onLine = [&] {
    sink->onLine = nullptr;
    Logger::logBase.sinks.push_back(appended);
  };
  Say("text");
  EXPECT_EQ(TakeRaw(), List("text", "text"));
}

TEST_F(Messages, are_whole_for_every_sink_even_if_another_writes_into_them) {
  struct WritingSink : LogSink {
    void logMessage(const char* message) override { *const_cast<char*>(message) = '!'; }
  };
  auto& sinks = Logger::logBase.sinks;
  sinks.push_back(new WritingSink);
  for (int i = 0; i < 2; ++i) sinks.push_back(new Sink(this));
  Say("a text that no string keeps within itself");
  EXPECT_EQ(TakeRaw(), Lines(3, "a text that no string keeps within itself"));
}

TEST_F(Messages, keep_errno_even_if_the_lock_fails) {
  std::vector<LogSink*> sinks;
  sinks.swap(Logger::logBase.sinks);
  lockFails = true;
  errno = ENODEV;
  KaloStateInit(nullptr);
  EXPECT_EQ(errno, ENODEV);
  lockFails = false;
  EXPECT_EQ(texts.size(), 4u) << "each failed lock and unlock is reported";
  sinks.swap(Logger::logBase.sinks);
}

// A sink cannot be deleted safely while one is being called.
TEST_F(Messages, let_a_sink_end_the_process) {
  struct Undeletable : LogSink {
    ~Undeletable() override { _exit(static_cast<int>(gKaloDllState.kaloRefCountA)); }
    void logMessage(const char*) override {}
  };
  EXPECT_EXIT(
      {
        Logger::logBase.sinks.push_back(new Undeletable);
        sink->onLine = [this] {
          // When locking fails, the statement of another thread must have been delivered before
          // this one.
          sink->onLine = nullptr;
          lockFails = true;
          std::thread([] { Say("text"); }).join();
          exit(3);
        };
        Say("text");
      },
      testing::ExitedWithCode(3), "");
  struct First : Undeletable {
    // The log's base is destroyed before the state.
    ~First() override { gKaloDllState.kaloRefCountA += 4; }
  };
  for (const bool logs : {false, true}) {
    EXPECT_EXIT(
        {
          state.kaloRefCountA = 5;
          auto& sinks = Logger::logBase.sinks;
          sinks.insert(sinks.end(), {new First, new Undeletable});
          if (logs) Say("text");
          exit(3);
        },
        testing::ExitedWithCode(9), "");
  }
}

TEST_F(Messages, of_the_child_that_a_sink_forks_are_delivered) {
  sink->onLine = [this] {
    sink->onLine = nullptr;
    const pid_t child = fork();
    if (child == 0) {
      alarm(20);
      Say("child");
      _exit(TakeRaw() == List("parent", "child") ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  };
  Say("parent");
  EXPECT_EQ(TakeRaw(), List("parent"));
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
  gLastError = 5;
  EXPECT_EQ(OSCL_QueryPerformanceFrequency(&frequency), 1);
  EXPECT_EQ(OSCL_GetLastError(), 0u);
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
  EXPECT_THAT(formats, testing::Each("%s"));
  std::string all;
  for (const std::string& text : texts) all += text + '|';
  EXPECT_EQ(all,
            "|no space left for allocate|invalid parameter is found|invalid handle|the file "
            "already exists|the file not found|the file is read only|can't find key in registry "
            "file|can't find the value of the key in registry|registry file can't be open as "
            "read|registry file can't be written|registry operation fail|registry type unknown|"
            "unknown items found in registry file|registry key name not found|registry key ID not "
            "found|unknown error|unknown error|unknown error|");
}

#ifndef __SANITIZE_THREAD__  // the thread sanitizer reports the misuse itself
TEST(DebugLog, is_the_only_report_of_a_failing_lock) {
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
  EXPECT_EQ(formats,
            List("can't unlock the critical section\n", "can't lock the critical section\n",
                 "can't destroy the critical section\n"));
}
#endif

}  // namespace
}  // namespace test
