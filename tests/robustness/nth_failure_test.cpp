#include <dirent.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <set>

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "log/log_file.h"
#include "log/logger.h"
#include "oscl/bounded_string.h"
#include "oscl/file.h"
#include "oscl/last_error.h"
#include "oscl/memory.h"
#include "oscl/module.h"
#include "oscl/registry.h"
#include "oscl/timing.h"
#include "oscl/user_feature.h"
#include "oscl/version.h"
#include "oscl/whole_file.h"
#include "simulator/attachment.h"
#include "tests/robustness/libc_faults.h"
#include "transport/client_session.h"

extern "C" __attribute__((weak)) int __lsan_do_recoverable_leak_check();

namespace {

using faults::Call;

// Which calls an entry point of the first generations may fail by; others of libc it must survive.
enum class Kind { kInit, kExchange, kOther };

struct Entry {
  const char* name;
  std::function<void()> prepare;
  std::function<uint32_t()> call;
  uint32_t result = 0;  // without a failure
  Kind kind = Kind::kOther;
  // Further results that the failure of a call may bring about.
  std::map<Call, std::set<uint32_t>> results = {};
  std::function<void()> finish = [] {};
  bool reconnects = false;
};

struct Injection {
  Call call;
  int error;
  const char* text;  // of the exception; null where the call is one to survive
};

constexpr Injection kInjections[] = {
    {Call::kDeviceOpen, EACCES, "Cannot open ZULI device."},
    {Call::kDeviceIoctl, EIO, "Cannot connect to ZULI device."},
    {Call::kDeviceIoctl, ENODEV, "Cannot connect to ZULI device."},
    {Call::kDeviceRead, EIO, "Error reading "},
    {Call::kDeviceRead, ENODEV, nullptr},
    {Call::kDeviceWrite, EIO, "Error writing message to ZULI."},
    {Call::kDeviceWrite, ENODEV, nullptr},
    {Call::kDeviceClose, EIO, nullptr},
    {Call::kOpen, EACCES, nullptr},
    {Call::kRead, EIO, nullptr},
    {Call::kWrite, ENOSPC, nullptr},
    {Call::kClose, EIO, nullptr},
    {Call::kSeek, EIO, nullptr},
    {Call::kStat, EIO, nullptr},
    {Call::kFopen, EACCES, nullptr},
    {Call::kStreamRead, EIO, nullptr},
    {Call::kStreamWrite, ENOSPC, nullptr},
    {Call::kFclose, EIO, nullptr},
    {Call::kAlloc, ENOMEM, "std::bad_alloc"},
    {Call::kLock, EINVAL, nullptr},
    {Call::kUnlock, EPERM, nullptr},
    {Call::kMutexInit, ENOMEM, nullptr},
    {Call::kMutexDestroy, EBUSY, nullptr},
    {Call::kClockResolution, EINVAL, nullptr},
    {Call::kClockTime, EINVAL, nullptr},
    {Call::kDlopen, ENOENT, nullptr},
    {Call::kDlsym, 0, nullptr},
    {Call::kDlclose, 0, nullptr},
    {Call::kSleep, EINTR, nullptr},
    {Call::kLocaltime, EOVERFLOW, nullptr},
};

constexpr const char* kTitles[] = {
#define ROBUSTNESS_CALL(name, title) title,
    ROBUSTNESS_CALLS(ROBUSTNESS_CALL)
#undef ROBUSTNESS_CALL
};

const char* Title(Call call) { return kTitles[static_cast<size_t>(call)]; }

// Told when the process dies in the middle.
char underWay[128];
void TellWhere(int) {
  const iovec pieces[] = {{const_cast<char*>("died while failing "), 19},
                          {underWay, strlen(underWay)},
                          {const_cast<char*>("\n"), 1}};
  // Nothing can be done where not even this is written.
  if (writev(STDERR_FILENO, pieces, 3) < 0) return;
}

constexpr char kRegistry[] =
    "[KEY]\n1\nHKEY_CURRENT_USER\\a key of some length\n[VALUE]\nname of some length\n1\ntext\n"
    "[VALUE]\nnumber\n4\n7\n[KEY]\n2\nHKEY_CURRENT_USER\\another key of some length\n";
constexpr char kKey[] = "a key of some length";
constexpr char kValue[] = "name of some length";

// Lets every message through, to the end.
class Sink : public LogSink {
 public:
  void logMessage(const char*) override { Logger::logBase.level = 100; }
};

class NthFailureTest : public testing::Test {
 protected:
  NthFailureTest()
      : folder_(Folder()),
        attachment_(engine_, {{"/data/Marvoleth.log", folder_ + "/log"},
                              {"/etc/vrel_registry.txt", Path("registry")}}) {
    for (const char* client : {"KALO", "FENU"}) {
      engine_.SetResponder(client, [](const zulisim::Bytes& request) {
        return zulisim::EchoReply(request, 0x80000001, zulisim::Bytes(16, 0xAB));
      });
    }
    Logger::logBase.plainOutput = false;
    signal(SIGABRT, TellWhere);
    signal(SIGSEGV, TellWhere);
  }

  ~NthFailureTest() override { std::filesystem::remove_all(folder_); }

  static std::string Folder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kalodll.XXXXXX").string();
    return mkdtemp(pattern.data());
  }

  std::string Path(const char* name) const { return folder_ + "/" + name; }

  void Store(const char* name, const char* text) const { std::ofstream(Path(name)) << text; }

  // The state of a fresh load, whatever a failure left; no session is open then.
  void Reset() {
    faults::Arm(Call::kCount, 1, 0);  // the mutexes keep their books
    while (state_.kaloRefCountA + state_.kaloRefCountB != 0) KaloCleanup();
    if (state_.fenuInterfaceVersion == 3) FenuCleanup();
    faults::Disarm();
    state_.kaloInterfaceVersion = state_.fenuInterfaceVersion = state_.fenuRefCount = 0;
    state_.kaloSessionA = state_.kaloSessionB = state_.fenuSession = nullptr;
    state_.lastErrorSource = state_.apiErrorCode = state_.fenuErrorCode = state_.kaloErrorCode = 0;
    std::memset(state_.apiErrorText, 0, sizeof state_.apiErrorText);
    for (LogSink*& sink : Logger::logBase.sinks) {
      if (sink != sink_) delete sink;
    }
    std::vector<LogSink*>().swap(Logger::logBase.sinks);
    if (sink_ != nullptr) Logger::logBase.sinks.push_back(sink_);
    engine_.ClearFaults();
  }

  uint32_t Exchange(ClientSession* session) {
    length_ = 0;
    return StartIoEx3(session, request_, 32, reply_, 32, private_, &length_);
  }

  uint32_t StartIoExOf(unsigned char command) {
    request_[6] = command;
    const uint32_t status = StartIoEx(request_, 32, reply_, 32, private_, &length_);
    request_[6] = 0;
    return status;
  }

  void Check(const Entry& entry, const Injection& injection, bool struck, uint32_t result,
             const ClientSession* session);
  uint32_t FailEach(const Entry& entry, const Injection& injection);
  std::vector<Entry> EntryPoints();
  std::vector<Entry> CompatibilityLayer();

  static size_t OpenDescriptors() {
    DIR* directory = opendir("/proc/self/fd");
    size_t count = 0;
    while (readdir(directory) != nullptr) ++count;
    closedir(directory);
    return count;
  }

  KaloDllState& state_ = gKaloDllState;
  zulisim::Engine engine_{{zulisim::DefaultClients(), false}};
  const std::string folder_;
  const std::string file_ = Path("file");
  zulisim::Attachment attachment_;
  LogSink* sink_ = new Sink;
  unsigned char request_[32] = {};
  unsigned char reply_[32] = {};
  unsigned char private_[16] = {};
  unsigned int length_ = 0;
  void* handle_ = nullptr;
  void* block_ = nullptr;
  UserFeatureKey key_ = {1, kKey, nullptr, 0};
  UserFeatureNotifyKey watch_ = {1, kKey, 0, nullptr};
};

std::vector<Entry> NthFailureTest::EntryPoints() {
  static KALO_STATE_INIT_PARAMS api30 = {KALO_FIRMWARE_API_30, 0};
  const auto nothing = [] {};
  const auto open = [this] { KaloInit3(&handle_); };
  const auto open30 = [=] {
    KaloStateInit(&api30);
    open();
  };
  const auto openFenu = [this] { FenuInit3(&handle_); };
  const auto init3 = [this] { return KaloInit3(&handle_); };
  const auto lose = [=](zulisim::Operation operation) {
    return [=] {
      open();
      engine_.LoseDeviceAtNext(operation, 2);
    };
  };
  const auto exchange = [this] { return Exchange(state_.kaloSessionA); };
  const auto version3 = [this]() -> uint32_t {
    KaloStateInit(&api30);
    uint32_t failed = 0;
    void* handles[3] = {};
    for (void*& handle : handles) failed |= KaloInit3(&handle);
    for (void* handle : handles) {
      if (handle != nullptr) failed |= Exchange(static_cast<ClientSession*>(handle));
    }
    for (void* handle : handles) failed |= KaloCleanup3(handle);
    return failed;
  };
  const auto earlier = [this]() -> uint32_t {
    uint32_t failed = KaloInit() | FenuInit();
    if (state_.kaloSessionA != nullptr) failed |= StartIoExOf(0);
    if (state_.fenuSession != nullptr) failed |= StartIoExOf(3);
    return failed | KaloCleanup() | FenuCleanup();
  };
  return {
      {"KaloStateInit", nothing, [] { return KaloStateInit(&api30); }},
      {"KaloInit3, A", nothing, init3, 0, Kind::kInit},
      {"KaloInit3, B", open30, init3, 0, Kind::kInit},
      {"KaloInit3, share", [=] { open30(), open(); }, init3, 0, Kind::kInit},
      {"KaloInit3, marker", [this] { state_.kaloInterfaceVersion = 1; }, init3, 5, Kind::kInit},
      {"StartIoEx3", open, exchange, 0, Kind::kExchange},
      {"StartIoEx3, lost at write",
       lose(zulisim::Operation::kWrite),
       exchange,
       0,
       Kind::kExchange,
       {},
       nothing,
       true},
      {"StartIoEx3, lost at read",
       lose(zulisim::Operation::kRead),
       exchange,
       0,
       Kind::kExchange,
       {},
       nothing,
       true},
      {"StartIoEx3, no output", open,
       [this] {
         return StartIoEx3(state_.kaloSessionA, request_, 32, nullptr, 32, nullptr, nullptr);
       },
       2, Kind::kExchange},
      {"StartIo3", open, [this] { return StartIo3(state_.kaloSessionA, request_, 32, reply_, 32); },
       0, Kind::kExchange},
      {"ProvisioningStartIo", nothing,
       [this] { return ProvisioningStartIo(request_, 32, reply_, 32); }, 2, Kind::kExchange},
      {"KaloCleanup3", open, [this] { return KaloCleanup3(state_.kaloSessionA); }},
      {"SessionCleanup", [this] { block_ = new ClientSession; },
       [this] { return SessionCleanup(block_); }},
      {"KaloInit", nothing, [] { return KaloInit(); }, 0, Kind::kInit},
      {"StartIoEx", open, [this] { return StartIoExOf(0); }, 0, Kind::kExchange},
      {"StartIoEx, not open", nothing, [this] { return StartIoExOf(0); }, 6, Kind::kExchange},
      {"StartIo", open, [this] { return StartIo(request_, 32, reply_, 32); }, 0, Kind::kExchange},
      {"KaloCleanup", open, [] { return KaloCleanup(); }},
      {"FenuInit3", nothing, [this] { return FenuInit3(&handle_); }, 0, Kind::kInit},
      {"FenuInit", nothing, [] { return FenuInit(); }, 0, Kind::kInit},
      {"FenuCleanup3", openFenu, [this] { return FenuCleanup3(handle_); }},
      {"FenuCleanup", openFenu, [] { return FenuCleanup(); }},
      {"sequence, version 3", nothing, version3, 0, Kind::kExchange},
      {"sequence, earlier", nothing, earlier, 0, Kind::kExchange},
  };
}

std::vector<Entry> NthFailureTest::CompatibilityLayer() {
  const auto registry = [this] { Store("registry", kRegistry); };
  const auto file = [this] { Store("file", "content"); };
  const auto freeBlock = [this] { FreeMem(block_), block_ = nullptr; };
  const auto clearKey = [this] { OSCL_UserFeature_DeleteValues(&key_); };
  const std::map<Call, std::set<uint32_t>> loading = {
      {Call::kFopen, {9}}, {Call::kStreamRead, {7, 8, 15}}, {Call::kAlloc, {1, 9}}};
  // A value that cannot be read is a success without data, once its key has been found.
  const std::map<Call, std::set<uint32_t>> reading = {
      {Call::kFopen, {0, 9}}, {Call::kStreamRead, {0, 15}}, {Call::kAlloc, {0, 1, 9, E_FAIL}}};
  std::map<Call, std::set<uint32_t>> writing = loading;
  writing[Call::kFopen].insert(10);
  writing[Call::kAlloc].insert({10, E_FAIL});
  writing[Call::kStreamWrite] = {10};
  writing[Call::kFclose] = {0, 10};
  const auto read = [this](uint32_t kind) {
    return [=] { return OSCL_UserFeature_ReadValue(nullptr, &key_, kValue, kind); };
  };
  const auto describe = [=] {
    registry();
    OSCL_UserFeature_ReadValueInit(&key_, "name", USER_FEATURE_MULTI_STRING);
    char* text = static_cast<char*>(AllocAndZeroMem(4));
    std::memcpy(text, "a\0b", 4);
    OSCL_UserFeature_SetMultiStringValue(key_.values, text, 4);
  };
  const auto bytes = [this](uint32_t failed) { return block_ == nullptr ? failed : 0; };
  return {
      {"AllocMem",
       [] {},
       [=] { return block_ = AllocMem(8), bytes(GetLastError() == 1 ? 1 : 2); },
       0,
       Kind::kOther,
       {{Call::kAlloc, {1}}},
       freeBlock},
      {"CreateFile to CloseHandle",
       file,
       [this]() -> uint32_t {
         HANDLE handle = CreateFile(file_.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
         if (handle == INVALID_HANDLE_VALUE) return 1;
         uint32_t done = 0;
         bool good = GetFileSize(handle, nullptr) == 7;
         good &= ReadFile(handle, reply_, 7, &done, nullptr) == 1;
         good &= WriteFile(handle, "x", 1, &done, nullptr) == 1;
         good &= SetFilePointer(handle, 0, nullptr, FILE_BEGIN) == 0;
         return CloseHandle(handle) == 1 && good ? 0 : 1;
       },
       0,
       Kind::kOther,
       {{Call::kOpen, {1}},
        {Call::kStat, {1}},
        {Call::kRead, {1}},
        {Call::kWrite, {1}},
        {Call::kSeek, {1}}}},
      {"OSCL_ReadFile",
       file,
       [=] { return block_ = OSCL_ReadFile(file_.c_str(), nullptr, &length_), bytes(1); },
       0,
       Kind::kOther,
       {{Call::kOpen, {1}}, {Call::kStat, {1}}, {Call::kRead, {1}}, {Call::kAlloc, {1}}},
       freeBlock},
      {"OSCL_WriteFile",
       [] {},
       [this] { return OSCL_WriteFile(file_.c_str(), "x", 1); },
       0,
       Kind::kOther,
       {{Call::kOpen, {E_FAIL}}, {Call::kWrite, {E_FAIL}}}},
      {"OSCL_AppendFile",
       file,
       [this] { return OSCL_AppendFile(file_.c_str(), "x", 1); },
       0,
       Kind::kOther,
       {{Call::kWrite, {E_FAIL}}}},
      {"LoadLibrary to FreeLibrary",
       [] {},
       []() -> uint32_t {
         HANDLE module = LoadLibrary("libdl.so.2");
         if (module == nullptr) return 1;
         const bool found = GetProcAddress(module, "dlopen") != nullptr;
         return FreeLibrary(module) == 1 && found ? 0 : 1;
       },
       0,
       Kind::kOther,
       {{Call::kDlopen, {1}}, {Call::kDlsym, {1}}, {Call::kDlclose, {1}}}},
      {"GetVersionEx",
       [] {},
       [] {
         OSVERSIONINFO info;
         return GetVersionEx(&info) == 1 ? 0u : 1u;
       },
       0,
       Kind::kOther,
       {{Call::kFopen, {1}}, {Call::kStreamRead, {1}}, {Call::kAlloc, {1}}}},
      {"CRITICAL_SECTION", [] {},
       [] {
         CRITICAL_SECTION section = PTHREAD_MUTEX_INITIALIZER;
         InitializeCriticalSection(&section);
         DeleteCriticalSection(&section);
         return 0u;
       }},
      {"QueryPerformanceCounter",
       [] {},
       [] {
         LARGE_INTEGER count;
         return QueryPerformanceFrequency(&count) == 1 && QueryPerformanceCounter(&count) == 1 ? 0u
                                                                                               : 1u;
       },
       0,
       Kind::kOther,
       {{Call::kClockResolution, {1}}, {Call::kClockTime, {1}}}},
      {"Sleep", [] {}, [] { return Sleep(1), 0u; }},
      {"localtime_s",
       [] {},
       [] {
         tm local;
         const time_t now = 0;
         return static_cast<uint32_t>(localtime_s(&local, &now));
       },
       0,
       Kind::kOther,
       {{Call::kLocaltime, {1}}}},
      {"RegOpenKeyEx", registry,
       [] {
         HKEY key;
         return RegOpenKeyEx(HKEY_CURRENT_USER, kKey, 0, 0, &key);
       },
       0, Kind::kOther, loading},
      {"RegQueryValueExA", registry,
       [this] { return RegQueryValueExA(1, kValue, nullptr, nullptr, reply_, &length_); }, 0,
       Kind::kOther, loading},
      {"RegSetValueEx", registry, [] { return RegSetValueEx(1, "set", 0, REG_SZ, "text", 5); }, 0,
       Kind::kOther, writing},
      {"ReadValue, string", registry, read(USER_FEATURE_STRING), 0, Kind::kOther, reading,
       clearKey},
      {"ReadValue, strings",
       registry,
       read(USER_FEATURE_MULTI_STRING),
       0,
       Kind::kOther,
       {{Call::kFopen, {9, E_FAIL}},
        {Call::kStreamRead, {15, E_FAIL}},
        {Call::kAlloc, {1, 9, E_FAIL}}},
       clearKey},
      {"ReadValue, number", registry, read(USER_FEATURE_NUMBER32_A), 0, Kind::kOther, reading,
       clearKey},
      {"WriteValues", describe, [this] { return OSCL_UserFeature_WriteValues(nullptr, &key_); }, 0,
       Kind::kOther, writing, clearKey},
      {"EnableNotification",
       registry,
       [this] { return OSCL_UserFeature_EnableNotification(nullptr, &watch_); },
       0,
       Kind::kOther,
       {{Call::kFopen, {9}}, {Call::kStreamRead, {15}}, {Call::kAlloc, {1, 9, E_FAIL}}},
       [this] { FreeMem(watch_.notifyData), watch_.notifyData = nullptr; }},
  };
}

// Holds what the call returned and what it recorded against what the failure may bring about.
void NthFailureTest::Check(const Entry& entry, const Injection& injection, bool struck,
                           uint32_t result, const ClientSession* session) {
  std::set<uint32_t> allowed = {entry.result};
  const auto more = entry.results.find(injection.call);
  const bool mayFail = struck && injection.text != nullptr && entry.kind != Kind::kOther &&
                       (entry.kind == Kind::kExchange || injection.call != Call::kDeviceRead);
  const bool memory = injection.call == Call::kAlloc;
  if (struck && more != entry.results.end()) {
    if (!memory && more->second.count(0) == 0 && injection.call != Call::kStreamRead) allowed = {};
    allowed.insert(more->second.begin(), more->second.end());
  }
  if (mayFail && !memory) allowed = {1};
  if (mayFail && memory) allowed.insert(1);
  EXPECT_EQ(allowed.count(result), 1u) << result;
  if (entry.kind == Kind::kOther || result == 0) {
    EXPECT_EQ(state_.lastErrorSource, 0u);
    return;
  }
  const bool exception = result == 1;
  const uint32_t code = exception ? 0xFFFFFFFFu : result;
  const std::string text = exception ? injection.text : "KALO Exception";
  const bool earlier = state_.lastErrorSource != KALO_ERROR_SOURCE_API3;
  const char* recorded = earlier ? state_.kaloErrorText : state_.apiErrorText;
  EXPECT_EQ(std::string(recorded).compare(0, text.size(), text), 0) << recorded;
  EXPECT_EQ(earlier ? state_.kaloErrorCode : state_.apiErrorCode, code);
  EXPECT_EQ(state_.lastErrorProcessId, static_cast<uint32_t>(getpid()));
  // Without memory for the text the session's record may stay as it was.
  if (session == nullptr || memory) return;
  EXPECT_EQ(session->lastErrorStatus, static_cast<int32_t>(code));
  EXPECT_EQ(std::string(session->lastErrorText, text.size()), text);
}

// Fails the first, second, ... call until it is called no more; returns how many there were.
uint32_t NthFailureTest::FailEach(const Entry& entry, const Injection& injection) {
  const std::string name = std::string(entry.name) + ": errno " + std::to_string(injection.error) +
                           " from " + Title(injection.call) + " no. ";
  const auto loss = [&] {
    if (injection.error == ENODEV) engine_.LoseDevice();
  };
  for (uint32_t number = 1;; ++number) {
    const std::string where = name + std::to_string(number);
    SCOPED_TRACE(where);
    std::strncpy(underWay, where.c_str(), sizeof underWay - 1);
    Reset();
    const int32_t blocks = gAllocationCount;
    const size_t descriptors = OpenDescriptors();
    entry.prepare();
    const ClientSession* session = entry.kind == Kind::kExchange ? state_.kaloSessionA : nullptr;
    faults::Arm(injection.call, number, injection.error, loss);
    const uint32_t result = entry.call();
    const bool struck = faults::Disarm();
    Check(entry, injection, struck, result, state_.kaloSessionA == session ? session : nullptr);
    for (CRITICAL_SECTION* lock : {&state_.stateLock, &Logger::logBase.lock}) {
      EXPECT_EQ(pthread_mutex_trylock(lock), 0);
      pthread_mutex_unlock(lock);
    }
    EXPECT_EQ(faults::WrongUnlocks(), 0);
    entry.finish();
    Reset();
    EXPECT_EQ(gAllocationCount, blocks);
    // A connection that was refused when it was first made leaves its descriptor behind.
    const bool leak = struck && injection.call == Call::kDeviceIoctl && !entry.reconnects;
    EXPECT_EQ(faults::CloseDevices(), leak ? 1u : 0u);
    EXPECT_EQ(OpenDescriptors(), descriptors);
    if (!struck || HasFailure()) return number - 1;
    entry.prepare();
    EXPECT_EQ(entry.call(), entry.result) << "the next call";
    entry.finish();
  }
}

TEST_F(NthFailureTest, every_call_of_libc_may_fail_once) {
  ASSERT_TRUE(faults::Install()) << "the library's linkage table was not found";
  std::vector<Entry> entries = EntryPoints();
  for (Entry& entry : CompatibilityLayer()) entries.push_back(std::move(entry));
  uint32_t total = 0;
  std::map<Call, uint32_t> perCall;
  for (const Entry& entry : entries) {
    std::map<Call, uint32_t> counts;
    for (const Injection& injection : kInjections) {
      counts[injection.call] += FailEach(entry, injection);
      if (HasFailure()) FAIL() << "stopped at the first failure";
    }
    std::cout << entry.name << ':';
    for (const auto& [call, count] : counts) {
      if (count == 0) continue;
      std::cout << "  " << Title(call) << ' ' << count;
      perCall[call] += count;
      total += count;
    }
    std::cout << '\n';
    if (__lsan_do_recoverable_leak_check != nullptr) {
      ASSERT_EQ(__lsan_do_recoverable_leak_check(), 0) << entry.name;
    }
  }
  EXPECT_EQ(perCall.size(), std::size(kTitles)) << "a call was never reached";
  std::cout << "all:";
  for (const auto& [call, count] : perCall) {
    std::cout << "  " << Title(call) << ' ' << count;
  }
  std::cout << "\n"
            << total << " failures; leaks of memory are "
            << (__lsan_do_recoverable_leak_check != nullptr ? "" : "not ") << "looked for\n";
}

}  // namespace
