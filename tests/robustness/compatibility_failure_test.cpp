// Fails each call of libc that the compatibility layer makes, one after the other.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <utility>

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
#include "tests/support/descriptors.h"

extern "C" __attribute__((weak)) int __lsan_do_recoverable_leak_check();

namespace {

constexpr const char* kCalls[] = {"malloc",
                                  "open",
                                  "read",
                                  "write",
                                  "close",
                                  "lseek",
                                  "fstat",
                                  "fopen",
                                  "fread",
                                  "fwrite",
                                  "fclose",
                                  "lock",
                                  "pthread_mutex_init",
                                  "pthread_mutex_destroy",
                                  "clock_getres",
                                  "clock_gettime",
                                  "dlopen",
                                  "dlsym",
                                  "dlclose",
                                  "usleep",
                                  "localtime"};

constexpr char kRegistry[] =
    "[KEY]\n1\nHKEY_CURRENT_USER\\a key of some length\n[VALUE]\nname of some length\n1\ntext\n"
    "[VALUE]\nnumber\n4\n7\n[KEY]\n2\nHKEY_CURRENT_USER\\another key of some length\n";
constexpr char kKey[] = "a key of some length";
constexpr char kValue[] = "name of some length";

uint32_t Failed(bool good) { return good ? 0 : 1; }

class CompatibilityFailure : public testing::Test {
 protected:
  using Names = std::set<std::string>;
  using Results = std::set<uint32_t>;

  ~CompatibilityFailure() override { std::filesystem::remove_all(folder_); }

  static std::string MakeFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kalodll.XXXXXX").string();
    return mkdtemp(pattern.data());
  }

  void Reset() {
    FreeMem(std::exchange(block_, nullptr));
    FreeMem(std::exchange(watch_.notifyData, nullptr));
    OSCL_UserFeature_DeleteValues(&key_);
    std::ofstream(folder_ + "/registry") << kRegistry;
    std::ofstream(file_) << "content";
  }

  // Fails each call of libc in turn. The failure of those in `mustFail` has one of their results;
  // that of memory or of a stream may have one of `failures`, and of any other nobody hears.
  void Sweep(
      const char* name, const std::function<uint32_t()>& call,
      const std::map<std::string, Results>& mustFail = {}, const Results& failures = {1},
      const std::function<void()>& prepare = [] {}) {
    const Names mayFail = {"malloc", "fopen", "fread", "fclose"};
    bool struck = true;
    for (const std::string failing : kCalls) {
      for (uint32_t number = 1; struck || number == 1; ++number) {
        Reset();
        const int32_t blocks = gAllocationCount;
        const long descriptors = test::OpenDescriptors();
        prepare();
        faults::Arm(failing, number);
        const uint32_t result = call();
        struck = faults::Disarm();
        const auto must = mustFail.find(failing);
        if (struck && must != mustFail.end()) {
          EXPECT_EQ(must->second.count(result), 1u) << result;
        } else if (result != 0) {
          EXPECT_TRUE(struck && mayFail.count(failing) != 0 && failures.count(result) != 0)
              << result;
        }
        Reset();
        EXPECT_EQ(gAllocationCount, blocks);
        EXPECT_EQ(test::OpenDescriptors(), descriptors);
        prepare();
        EXPECT_EQ(call(), 0u) << "the next call";
        if (struck) ++tally_[name][failing];
        ASSERT_FALSE(HasFailure()) << name << ": " << failing << " no. " << number;
      }
    }
    Reset();
    if (__lsan_do_recoverable_leak_check != nullptr) {
      ASSERT_EQ(__lsan_do_recoverable_leak_check(), 0) << name;
    }
  }

  uint32_t UseFile() {
    HANDLE handle = CreateFile(file_.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                               OPEN_EXISTING, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return 1;
    uint32_t done = 0;
    bool good = GetFileSize(handle, nullptr) == 7;
    good &= ReadFile(handle, data_, 7, &done, nullptr) == 1;
    good &= WriteFile(handle, "x", 1, &done, nullptr) == 1;
    good &= SetFilePointer(handle, 0, nullptr, FILE_BEGIN) == 0;
    return Failed(CloseHandle(handle) == 1 && good);
  }

  static uint32_t UseModule() {
    HANDLE module = LoadLibrary("libdl.so.2");
    if (module == nullptr) return 1;
    const bool found = GetProcAddress(module, "dlopen") != nullptr;
    return Failed(FreeLibrary(module) == 1 && found);
  }

  static uint32_t UseSection() {
    CRITICAL_SECTION section = PTHREAD_MUTEX_INITIALIZER;
    InitializeCriticalSection(&section);
    EnterCriticalSection(&section);
    DeleteCriticalSection(&section);
    return 0;
  }

  void Describe() {
    OSCL_UserFeature_ReadValueInit(&key_, "name", USER_FEATURE_MULTI_STRING);
    char* text = static_cast<char*>(AllocAndZeroMem(4));
    std::memcpy(text, "a\0b", 4);
    OSCL_UserFeature_SetMultiStringValue(key_.values, text, 4);
  }

  const std::string folder_ = MakeFolder();
  const std::string file_ = folder_ + "/file";
  zulisim::Engine engine_;
  zulisim::InProcessDevice attachment_{engine_, {{"/etc/vrel_registry.txt", folder_ + "/registry"}}};
  faults::Tally tally_;
  unsigned char data_[32] = {};
  unsigned int length_ = 0;
  void* block_ = nullptr;
  HKEY opened_ = 0;
  UserFeatureKey key_ = {1, kKey, nullptr, 0};
  UserFeatureNotifyKey watch_ = {1, kKey, 0, nullptr};
};

TEST_F(CompatibilityFailure, is_told_and_leaves_nothing_behind) {
  ASSERT_TRUE(faults::Install()) << "the library's linkage table was not found";
  OSVERSIONINFO info;
  LARGE_INTEGER ticks;
  tm local;
  const time_t now = 0;
  const char* file = file_.c_str();
  Sweep("AllocMem", [&] { return Failed((block_ = AllocMem(8)) != nullptr); }, {{"malloc", {1}}});
  Sweep("CreateFile to CloseHandle", [&] { return UseFile(); },
        {{"open", {1}}, {"fstat", {1}}, {"read", {1}}, {"write", {1}}, {"lseek", {1}}});
  Sweep("OSCL_ReadFile",
        [&] { return Failed((block_ = OSCL_ReadFile(file, nullptr, &length_)) != nullptr); },
        {{"open", {1}}, {"fstat", {1}}, {"read", {1}}, {"malloc", {1}}});
  Sweep("OSCL_WriteFile", [&] { return OSCL_WriteFile(file, "x", 1); },
        {{"open", {E_FAIL}}, {"write", {E_FAIL}}}, {E_FAIL});
  Sweep("OSCL_AppendFile", [&] { return OSCL_AppendFile(file, "x", 1); }, {{"write", {E_FAIL}}},
        {E_FAIL});
  Sweep("LoadLibrary to FreeLibrary", UseModule,
        {{"dlopen", {1}}, {"dlsym", {1}}, {"dlclose", {1}}});
  Sweep("GetVersionEx", [&] { return Failed(GetVersionEx(&info) == 1); }, {{"fopen", {1}}});
  Sweep("CRITICAL_SECTION", UseSection);
  Sweep("QueryPerformanceFrequency", [&] { return Failed(QueryPerformanceFrequency(&ticks) == 1); },
        {{"clock_getres", {1}}});
  Sweep("QueryPerformanceCounter", [&] { return Failed(QueryPerformanceCounter(&ticks) == 1); },
        {{"clock_getres", {1}}, {"clock_gettime", {1}}});
  Sweep("Sleep", [] { return Sleep(1), 0u; });
  Sweep("localtime_s", [&] { return static_cast<uint32_t>(localtime_s(&local, &now)); },
        {{"localtime", {1}}});

  const Results loading = {1, 7, 8, 9, 15}, writing = {1, 7, 8, 9, 10, 15, E_FAIL};
  Sweep(
      "RegOpenKeyEx", [&] { return RegOpenKeyEx(HKEY_CURRENT_USER, kKey, 0, 0, &opened_); },
      {{"fopen", {9}}}, loading);
  Sweep(
      "RegQueryValueExA",
      [&] { return RegQueryValueExA(1, kValue, nullptr, nullptr, data_, &length_); },
      {{"fopen", {9}}}, loading);
  Sweep(
      "RegSetValueEx", [] { return RegSetValueEx(1, "set", 0, REG_SZ, "text", 5); },
      {{"fopen", {9, 10}}, {"fwrite", {10}}}, writing);
  // A value that cannot be read is a success without data, once its key has been found.
  for (const uint32_t kind :
       {USER_FEATURE_STRING, USER_FEATURE_MULTI_STRING, USER_FEATURE_NUMBER32_A}) {
    Sweep(
        "OSCL_UserFeature_ReadValue",
        [&] { return OSCL_UserFeature_ReadValue(nullptr, &key_, kValue, kind); }, {}, writing);
  }
  Sweep(
      "OSCL_UserFeature_WriteValues", [&] { return OSCL_UserFeature_WriteValues(nullptr, &key_); },
      {{"fopen", {9, 10}}, {"fwrite", {10}}}, writing, [&] { Describe(); });
  Sweep(
      "OSCL_UserFeature_EnableNotification",
      [&] { return OSCL_UserFeature_EnableNotification(nullptr, &watch_); }, {{"fopen", {9}}},
      writing);
  Names reached;
  for (const auto& [name, calls] : tally_) {
    for (const auto& [call, count] : calls) reached.insert(call);
  }
  EXPECT_EQ(reached.size(), std::size(kCalls));
  faults::Print(tally_);
}

}  // namespace
