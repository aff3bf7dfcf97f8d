#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <set>

#include "api/kalo_dll_state.h"
#include "log/log_file.h"
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
#include "tests/robustness/driver.h"
#include "tests/robustness/libc_faults.h"
#include "transport/client_session.h"

extern "C" __attribute__((weak)) int __lsan_do_recoverable_leak_check();

namespace {

// Which calls an entry point of the first generations may fail by; others of libc it must survive.
// What reconnects closes what was refused.
enum Kind { kOther, kInit, kExchange, kReconnect };

// Further results that the failure of a call may bring about, by the names of the calls.
using Results = std::map<std::string, std::set<uint32_t>>;

struct Entry {
  const char* name;
  std::function<uint32_t()> call;
  Kind kind = kOther;
  uint32_t result = 0;  // without a failure
  std::function<void()> prepare = [] {};
  Results results = {};
};

struct Injection {
  const char* call;
  int error;
  const char* text = nullptr;  // of the exception; null where the call is one to survive
};

constexpr Injection kInjections[] = {{"open dev", EACCES, "Cannot open ZULI device."},
                                     {"ioctl dev", EIO, "Cannot connect to ZULI device."},
                                     {"ioctl dev", ENODEV, "Cannot connect to ZULI device."},
                                     {"read dev", EIO, "Error reading "},
                                     {"read dev", ENODEV},
                                     {"write dev", EIO, "Error writing message to ZULI."},
                                     {"write dev", ENODEV},
                                     {"malloc", ENOMEM, "std::bad_alloc"},
                                     {"close dev", EIO},
                                     {"open", EACCES},
                                     {"read", EIO},
                                     {"write", ENOSPC},
                                     {"close", EIO},
                                     {"lseek", EIO},
                                     {"fstat", EIO},
                                     {"fopen", EACCES},
                                     {"fread", EIO},
                                     {"fwrite", ENOSPC},
                                     {"fclose", EIO},
                                     {"lock", EINVAL},
                                     {"unlock", EPERM},
                                     {"mtx init", ENOMEM},
                                     {"mtx destr", EBUSY},
                                     {"clk res", EINVAL},
                                     {"clk time", EINVAL},
                                     {"dlopen", ENOENT},
                                     {"dlsym", 0},
                                     {"dlclose", 0},
                                     {"usleep", EINTR},
                                     {"localtime", EOVERFLOW}};

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
  }

  ~NthFailureTest() override { std::filesystem::remove_all(folder_); }

  static std::string Folder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kalodll.XXXXXX").string();
    return mkdtemp(pattern.data());
  }

  std::string Path(const char* name) const { return folder_ + "/" + name; }

  // The state of a fresh load, whatever a failure left; no session is open then.
  void Reset() {
    faults::Arm("none", 1, 0);  // the mutexes keep their books
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
    FreeMem(std::exchange(block_, nullptr));
    FreeMem(std::exchange(watch_.notifyData, nullptr));
    OSCL_UserFeature_DeleteValues(&key_);
    std::ofstream(Path("registry")) << kRegistry;
    std::ofstream(file_) << "content";
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
  HKEY opened_ = 0;
  UserFeatureKey key_ = {1, kKey, nullptr, 0};
  UserFeatureNotifyKey watch_ = {1, kKey, 0, nullptr};
};

std::vector<Entry> NthFailureTest::EntryPoints() {
  static KALO_STATE_INIT_PARAMS api30 = {KALO_FIRMWARE_API_30, 0};
  const auto open = [this] { KaloInit3(&handle_); };
  const auto open30 = [=] { KaloStateInit(&api30), open(); };
  const auto openFenu = [this] { FenuInit3(&handle_); };
  const auto init3 = [this] { return KaloInit3(&handle_); };
  const auto lose = [=](zulisim::Operation operation) {
    return [=] { open(), engine_.LoseDeviceAtNext(operation, 2); };
  };
  const auto exchange = [this] { return Exchange(state_.kaloSessionA); };
  const auto noOutput = [this] {
    return StartIoEx3(state_.kaloSessionA, request_, 32, nullptr, 32, nullptr, nullptr);
  };
  const auto ex = [this] { return StartIoExOf(0); };
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
  const auto marker = [this] { state_.kaloInterfaceVersion = 1; };
  const auto own = [this] { handle_ = new ClientSession; };
  return {
      {"KaloStateInit", [] { return KaloStateInit(&api30); }},
      {"KaloInit3, A", init3, kInit},
      {"KaloInit3, B", init3, kInit, 0, open30},
      {"KaloInit3, share", init3, kInit, 0, [=] { open30(), open(); }},
      {"KaloInit3, marker", init3, kInit, 5, marker},
      {"StartIoEx3", exchange, kExchange, 0, open},
      {"StartIoEx3, lost at write", exchange, kReconnect, 0, lose(zulisim::Operation::kWrite)},
      {"StartIoEx3, lost at read", exchange, kReconnect, 0, lose(zulisim::Operation::kRead)},
      {"StartIoEx3, no output", noOutput, kExchange, 2, open},
      {"StartIo3", [=] { return StartIo3(state_.kaloSessionA, request_, 32, reply_, 32); },
       kExchange, 0, open},
      {"ProvisioningStartIo", [=] { return ProvisioningStartIo(request_, 32, reply_, 32); },
       kExchange, 2},
      {"KaloCleanup3", [=] { return KaloCleanup3(state_.kaloSessionA); }, kOther, 0, open},
      {"SessionCleanup", [=] { return SessionCleanup(handle_); }, kOther, 0, own},
      {"KaloInit", KaloInit, kInit},
      {"StartIoEx", ex, kExchange, 0, open},
      {"StartIoEx, not open", ex, kExchange, 6},
      {"StartIo", [=] { return StartIo(request_, 32, reply_, 32); }, kExchange, 0, open},
      {"KaloCleanup", KaloCleanup, kOther, 0, open},
      {"FenuInit3", [=] { return FenuInit3(&handle_); }, kInit},
      {"FenuInit", FenuInit, kInit},
      {"FenuCleanup3", [=] { return FenuCleanup3(handle_); }, kOther, 0, openFenu},
      {"FenuCleanup", FenuCleanup, kOther, 0, openFenu},
      {"sequence, version 3", version3, kExchange},
      {"sequence, earlier", earlier, kExchange},
  };
}

std::vector<Entry> NthFailureTest::CompatibilityLayer() {
  const Results loading = {{"fopen", {9}}, {"fread", {7, 8, 15}}, {"malloc", {1, 9}}};
  // A value that cannot be read is a success without data, once its key has been found.
  const Results reading = {{"fopen", {0, 9}}, {"fread", {0, 15}}, {"malloc", {0, 1, 9, E_FAIL}}};
  const Results splitting = {
      {"fopen", {9, E_FAIL}}, {"fread", {15, E_FAIL}}, {"malloc", {1, 9, E_FAIL}}};
  const Results watching = {{"fopen", {9}}, {"fread", {15}}, {"malloc", {1, 9, E_FAIL}}};
  const Results writing = {{"fopen", {9, 10}},
                           {"fread", {7, 8, 15}},
                           {"malloc", {1, 9, 10, E_FAIL}},
                           {"fwrite", {10}},
                           {"fclose", {0, 10}}};
  std::vector<Entry> entries;
  const auto add = [&](
                       const char* name, std::function<uint32_t()> call, Results results = {},
                       std::function<void()> prepare = [] {}) {
    entries.push_back({name, std::move(call), kOther, 0, std::move(prepare), std::move(results)});
  };
  const auto read = [this](uint32_t kind) {
    return [=] { return OSCL_UserFeature_ReadValue(nullptr, &key_, kValue, kind); };
  };
  const auto describe = [this] {
    OSCL_UserFeature_ReadValueInit(&key_, "name", USER_FEATURE_MULTI_STRING);
    char* text = static_cast<char*>(AllocAndZeroMem(4));
    std::memcpy(text, "a\0b", 4);
    OSCL_UserFeature_SetMultiStringValue(key_.values, text, 4);
  };
  const auto allocate = [this] {
    block_ = AllocMem(8);
    return block_ != nullptr ? 0u : GetLastError() == 1 ? 1u : 2u;
  };
  add("AllocMem", allocate, {{"malloc", {1}}});
  const auto useFile = [this]() -> uint32_t {
    HANDLE handle = CreateFile(file_.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                               OPEN_EXISTING, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return 1;
    uint32_t done = 0;
    bool good = GetFileSize(handle, nullptr) == 7;
    good &= ReadFile(handle, reply_, 7, &done, nullptr) == 1;
    good &= WriteFile(handle, "x", 1, &done, nullptr) == 1;
    good &= SetFilePointer(handle, 0, nullptr, FILE_BEGIN) == 0;
    return CloseHandle(handle) == 1 && good ? 0 : 1;
  };
  add("CreateFile to CloseHandle", useFile,
      {{"open", {1}}, {"fstat", {1}}, {"read", {1}}, {"write", {1}}, {"lseek", {1}}});
  const auto readFile = [this] {
    return (block_ = OSCL_ReadFile(file_.c_str(), nullptr, &length_)) == nullptr ? 1u : 0u;
  };
  add("OSCL_ReadFile", readFile, {{"open", {1}}, {"fstat", {1}}, {"read", {1}}, {"malloc", {1}}});
  add("OSCL_WriteFile", [this] { return OSCL_WriteFile(file_.c_str(), "x", 1); },
      {{"open", {E_FAIL}}, {"write", {E_FAIL}}});
  add("OSCL_AppendFile", [this] { return OSCL_AppendFile(file_.c_str(), "x", 1); },
      {{"write", {E_FAIL}}});
  const auto load = []() -> uint32_t {
    HANDLE module = LoadLibrary("libdl.so.2");
    if (module == nullptr) return 1;
    const bool found = GetProcAddress(module, "dlopen") != nullptr;
    return FreeLibrary(module) == 1 && found ? 0 : 1;
  };
  add("LoadLibrary to FreeLibrary", load, {{"dlopen", {1}}, {"dlsym", {1}}, {"dlclose", {1}}});
  const auto version = [] {
    OSVERSIONINFO info;
    return GetVersionEx(&info) == 1 ? 0u : 1u;
  };
  add("GetVersionEx", version, {{"fopen", {1}}, {"fread", {1}}, {"malloc", {1}}});
  const auto section = [] {
    CRITICAL_SECTION made = PTHREAD_MUTEX_INITIALIZER;
    InitializeCriticalSection(&made);
    DeleteCriticalSection(&made);
    return 0u;
  };
  add("CRITICAL_SECTION", section);
  const auto count = [] {
    LARGE_INTEGER ticks;
    return QueryPerformanceFrequency(&ticks) == 1 && QueryPerformanceCounter(&ticks) == 1 ? 0u : 1u;
  };
  add("QueryPerformanceCounter", count, {{"clk res", {1}}, {"clk time", {1}}});
  add("Sleep", [] { return Sleep(1), 0u; });
  const auto local = [] {
    tm time;
    const time_t now = 0;
    return static_cast<uint32_t>(localtime_s(&time, &now));
  };
  add("localtime_s", local, {{"localtime", {1}}});
  add(
      "RegOpenKeyEx", [this] { return RegOpenKeyEx(HKEY_CURRENT_USER, kKey, 0, 0, &opened_); },
      loading);
  add(
      "RegQueryValueExA",
      [=] { return RegQueryValueExA(1, kValue, nullptr, nullptr, reply_, &length_); }, loading);
  add(
      "RegSetValueEx", [] { return RegSetValueEx(1, "set", 0, REG_SZ, "text", 5); }, writing);
  add("ReadValue, string", read(USER_FEATURE_STRING), reading);
  add("ReadValue, strings", read(USER_FEATURE_MULTI_STRING), splitting);
  add("ReadValue, number", read(USER_FEATURE_NUMBER32_A), reading);
  add(
      "WriteValues", [=] { return OSCL_UserFeature_WriteValues(nullptr, &key_); }, writing,
      describe);
  add(
      "EnableNotification", [=] { return OSCL_UserFeature_EnableNotification(nullptr, &watch_); },
      watching);
  return entries;
}

// Holds what the call returned and what it recorded against what the failure may bring about.
void NthFailureTest::Check(const Entry& entry, const Injection& injection, bool struck,
                           uint32_t result, const ClientSession* session) {
  const std::string call = injection.call;
  std::set<uint32_t> allowed = {entry.result};
  const auto more = entry.results.find(call);
  const bool mayFail = struck && injection.text != nullptr && entry.kind != kOther &&
                       (entry.kind >= kExchange || call != "read dev");
  const bool memory = call == "malloc";
  if (struck && more != entry.results.end()) {
    if (!memory && more->second.count(0) == 0 && call != "fread") allowed = {};
    allowed.insert(more->second.begin(), more->second.end());
  }
  if (mayFail && !memory) allowed = {1};
  if (mayFail && memory) allowed.insert(1);
  EXPECT_EQ(allowed.count(result), 1u) << result;
  if (entry.kind == kOther || result == 0) {
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
                           " from " + injection.call + " no. ";
  const auto loss = [&] {
    if (injection.error == ENODEV) engine_.LoseDevice();
  };
  for (uint32_t number = 1;; ++number) {
    SCOPED_TRACE(name + std::to_string(number));
    Reset();
    const int32_t blocks = gAllocationCount;
    const size_t descriptors = driver::OpenDescriptors();
    entry.prepare();
    const ClientSession* session = entry.kind >= kExchange ? state_.kaloSessionA : nullptr;
    faults::Arm(injection.call, number, injection.error, loss);
    const uint32_t result = entry.call();
    const bool struck = faults::Disarm();
    Check(entry, injection, struck, result, state_.kaloSessionA == session ? session : nullptr);
    for (CRITICAL_SECTION* lock : {&state_.stateLock, &Logger::logBase.lock}) {
      EXPECT_EQ(pthread_mutex_trylock(lock), 0);
      pthread_mutex_unlock(lock);
    }
    EXPECT_EQ(faults::WrongUnlocks(), 0);
    Reset();
    EXPECT_EQ(gAllocationCount, blocks);
    // A connection that was refused when it was first made leaves its descriptor behind.
    const bool leak =
        struck && std::string(injection.call) == "ioctl dev" && entry.kind != kReconnect;
    EXPECT_EQ(faults::CloseDevices(), leak ? 1u : 0u);
    EXPECT_EQ(driver::OpenDescriptors(), descriptors);
    if (!struck || HasFailure()) return number - 1;
    entry.prepare();
    EXPECT_EQ(entry.call(), entry.result) << "the next call";
  }
}

TEST_F(NthFailureTest, every_call_of_libc_may_fail_once) {
  ASSERT_TRUE(faults::Install()) << "the library's linkage table was not found";
  std::vector<Entry> entries = EntryPoints();
  for (Entry& entry : CompatibilityLayer()) entries.push_back(std::move(entry));
  uint32_t total = 0;
  std::map<std::string, uint32_t> perCall;
  for (const Entry& entry : entries) {
    std::map<std::string, uint32_t> counts;
    for (const Injection& injection : kInjections) {
      counts[injection.call] += FailEach(entry, injection);
      if (HasFailure()) FAIL() << "stopped at the first failure";
    }
    std::cout << entry.name << ':';
    for (const auto& [call, count] : counts) {
      if (count == 0) continue;
      std::cout << "  " << call << ' ' << count;
      perCall[call] += count;
      total += count;
    }
    std::cout << '\n';
    if (__lsan_do_recoverable_leak_check != nullptr) {
      ASSERT_EQ(__lsan_do_recoverable_leak_check(), 0) << entry.name;
    }
  }
  for (const Injection& injection : kInjections) {
    EXPECT_EQ(perCall.count(injection.call), 1u) << injection.call << " was never reached";
  }
  std::cout << "all:";
  for (const auto& [call, count] : perCall) {
    std::cout << "  " << call << ' ' << count;
  }
  std::cout << "\n"
            << total << " failures; leaks of memory are "
            << (__lsan_do_recoverable_leak_check != nullptr ? "" : "not ") << "looked for\n";
}

}  // namespace
