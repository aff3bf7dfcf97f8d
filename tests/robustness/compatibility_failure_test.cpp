// Fails each call of libc that the compatibility layer makes, one after the other.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
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

const char* const kCalls[] = {"malloc",
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
                              "dlopen",
                              "dlsym",
                              "dlclose",
                              "usleep",
                              "localtime",
                              "clock_getres",
                              "clock_gettime",
                              "pthread_mutex_init",
                              "pthread_mutex_destroy"};

// Its values are more than the reader has room for at first.
constexpr char kRegistry[] =
    "[KEY]\n1\nHKEY_CURRENT_USER\\a key of some length\n[VALUE]\nname of some length\n1\ntext\n"
    "[VALUE]\nb\n4\n7\n[VALUE]\nc\n4\n7\n[VALUE]\nd\n4\n7\n[VALUE]\ne\n4\n7\n[VALUE]\nf\n4\n7\n"
    "[KEY]\n2\nb\n[KEY]\n3\nc\n[KEY]\n4\nd\n[KEY]\n5\ne\n[KEY]\n6\nf\n[KEY]\n7\ng\n";
constexpr char kKey[] = "a key of some length";
constexpr char kValue[] = "name of some length";

// Where a primitive says no more than that it failed: the code that it left.
constexpr uint32_t kFailed = 100;
constexpr uint32_t kNoMemory = kFailed + OSCL_ERROR_NO_MEMORY;
constexpr uint32_t kOther = kFailed + OSCL_ERROR_UNKNOWN;
uint32_t CodeUnless(bool good) { return good ? 0 : kFailed + GetLastError(); }

// The results that a call of libc may lead to when it fails; of one that is not named nobody hears.
using Results = std::map<std::string, std::set<uint32_t>>;
struct Row {
  const char* name;
  std::function<uint32_t()> call;
  Results results;
};

class CompatibilityFailure : public testing::Test {
 protected:
  ~CompatibilityFailure() override {
    OSCL_UserFeature_DeleteValues(&written_);
    std::filesystem::remove_all(folder_);
  }

  static std::string MakeFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kalodll.XXXXXX").string();
    return mkdtemp(pattern.data());
  }

  void Reset() {
    FreeMem(std::exchange(block_, nullptr));
    FreeMem(std::exchange(watch_.notifyData, nullptr));
    OSCL_UserFeature_DeleteValues(&read_);
    std::ofstream(folder_ + "/registry") << kRegistry;
    std::ofstream(file_) << "content";
    gLastError = 0;
  }

  // Fails each call of libc in turn.
  void Sweep(const Row& row) {
    bool struck = true;
    for (const std::string failing : kCalls) {
      for (uint32_t number = 1; struck || number == 1; ++number) {
        Reset();
        const int32_t blocks = gAllocationCount;
        const long descriptors = test::OpenDescriptors();
        faults::Arm(failing, number);
        const uint32_t result = row.call();
        struck = faults::Disarm();
        const auto may = row.results.find(failing);
        const bool heard = struck && may != row.results.end();
        EXPECT_TRUE(heard ? may->second.count(result) == 1 : result == 0) << result;
        Reset();
        EXPECT_EQ(gAllocationCount, blocks);
        EXPECT_EQ(test::OpenDescriptors(), descriptors);
        EXPECT_EQ(row.call(), 0u) << "the next call";
        if (struck) ++tally_[row.name][failing];
        ASSERT_FALSE(HasFailure()) << row.name << ": " << failing << " no. " << number;
      }
    }
    Reset();
    if (__lsan_do_recoverable_leak_check != nullptr) {
      ASSERT_EQ(__lsan_do_recoverable_leak_check(), 0) << row.name;
    }
  }

  uint32_t UseFile() {
    HANDLE handle = CreateFile(file_.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                               OPEN_EXISTING, 0, nullptr);
    uint32_t code = CodeUnless(handle != INVALID_HANDLE_VALUE);
    if (code != 0) return code;
    const auto keep = [&](bool good) { code = std::max(code, CodeUnless(good)); };
    uint32_t done = 0;
    keep(GetFileSize(handle, nullptr) == 7);
    keep(ReadFile(handle, data_, 7, &done, nullptr) == 1);
    keep(WriteFile(handle, "x", 1, &done, nullptr) == 1);
    keep(SetFilePointer(handle, 0, nullptr, FILE_BEGIN) == 0);
    keep(CloseHandle(handle) == 1);
    return code;
  }

  static uint32_t UseModule() {
    HANDLE module = LoadLibrary("libkalodll.so");
    if (module == nullptr) return CodeUnless(false);
    const uint32_t found = CodeUnless(GetProcAddress(module, "KaloInit3") != nullptr);
    return std::max(CodeUnless(FreeLibrary(module) == 1), found);
  }

  static uint32_t UseSection() {
    CRITICAL_SECTION section = PTHREAD_MUTEX_INITIALIZER;
    InitializeCriticalSection(&section);
    EnterCriticalSection(&section);
    DeleteCriticalSection(&section);
    return 0;
  }

  HRESULT ReadSetting(uint32_t kind) {
    return OSCL_UserFeature_ReadValue(nullptr, &read_, kValue, kind);
  }

  // Two strings, to write.
  void Describe() {
    OSCL_UserFeature_ReadValueInit(&written_, "name", USER_FEATURE_MULTI_STRING);
    char* text = static_cast<char*>(AllocAndZeroMem(4));
    std::memcpy(text, "a\0b", 4);
    OSCL_UserFeature_SetMultiStringValue(written_.values, text, 4);
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
  UserFeatureKey read_ = {1, kKey, nullptr, 0};
  UserFeatureKey written_ = {1, kKey, nullptr, 0};
  UserFeatureNotifyKey watch_ = {1, kKey, 0, nullptr};
};

TEST_F(CompatibilityFailure, is_told_and_leaves_nothing_behind) {
  ASSERT_TRUE(faults::Install()) << "the library's linkage table was not found";
  Describe();
  OSVERSIONINFO info;
  LARGE_INTEGER ticks;
  tm local;
  const time_t now = 0;
  const char* file = file_.c_str();
  // A value that cannot be read is a success without data, once its key has been found.
  const Results reading = {{"malloc", {0, 1, E_FAIL}}, {"fopen", {0, 9}}, {"fread", {0, 15}}};
  const Results writing = {{"malloc", {1, E_FAIL}},
                           {"fopen", {9, 10}},
                           {"fread", {7, 15}},
                           {"fwrite", {10}},
                           {"fclose", {0, 10}}};
  const Row rows[] = {
      {"AllocMem",
       [&] { return CodeUnless((block_ = AllocMem(8)) != nullptr); },
       {{"malloc", {kNoMemory}}}},
      {"CreateFile to CloseHandle",
       [&] { return UseFile(); },
       {{"open", {kOther}},
        {"fstat", {kOther}},
        {"read", {kOther}},
        {"write", {kOther}},
        {"lseek", {kOther}}}},
      {"OSCL_ReadFile",
       [&] { return CodeUnless((block_ = OSCL_ReadFile(file, nullptr, &length_)) != nullptr); },
       {{"open", {kOther}}, {"fstat", {kOther}}, {"read", {kOther}}, {"malloc", {kNoMemory}}}},
      {"OSCL_WriteFile",
       [&] { return OSCL_WriteFile(file, "x", 1); },
       {{"open", {E_FAIL}}, {"write", {E_FAIL}}}},
      {"OSCL_AppendFile", [&] { return OSCL_AppendFile(file, "x", 1); }, {{"write", {E_FAIL}}}},
      {"LoadLibrary to FreeLibrary",
       UseModule,
       {{"dlopen", {kOther}}, {"dlsym", {kFailed}}, {"dlclose", {kOther}}}},
      {"GetVersionEx", [&] { return CodeUnless(GetVersionEx(&info) == 1); }, {{"fopen", {kOther}}}},
      {"CRITICAL_SECTION", UseSection, {}},
      {"QueryPerformanceFrequency",
       [&] { return CodeUnless(QueryPerformanceFrequency(&ticks) == 1); },
       {{"clock_getres", {kFailed}}}},
      {"QueryPerformanceCounter",
       [&] { return CodeUnless(QueryPerformanceCounter(&ticks) == 1); },
       {{"clock_getres", {kFailed}}, {"clock_gettime", {kFailed}}}},
      {"Sleep", [] { return Sleep(1), 0u; }, {}},
      {"localtime_s",
       [&] { return static_cast<uint32_t>(localtime_s(&local, &now)); },
       {{"localtime", {1}}}},
      {"RegOpenKeyEx",
       [&] { return RegOpenKeyEx(HKEY_CURRENT_USER, kKey, 0, 0, &opened_); },
       {{"malloc", {1}}, {"fopen", {9}}, {"fread", {15}}}},
      {"RegQueryValueExA",
       [&] { return RegQueryValueExA(1, kValue, nullptr, nullptr, data_, &length_); },
       {{"malloc", {1}}, {"fopen", {9}}, {"fread", {7}}}},
      {"RegSetValueEx", [] { return RegSetValueEx(1, "set", 0, REG_SZ, "text", 5); }, writing},
      {"OSCL_UserFeature_ReadValue", [&] { return ReadSetting(USER_FEATURE_STRING); }, reading},
      {"OSCL_UserFeature_ReadValue", [&] { return ReadSetting(USER_FEATURE_NUMBER32_A); }, reading},
      {"OSCL_UserFeature_ReadValue",
       [&] { return ReadSetting(USER_FEATURE_MULTI_STRING); },
       {{"malloc", {1, E_FAIL}}, {"fopen", {9, E_FAIL}}, {"fread", {15, E_FAIL}}}},
      {"OSCL_UserFeature_WriteValues",
       [&] { return OSCL_UserFeature_WriteValues(nullptr, &written_); }, writing},
      {"OSCL_UserFeature_EnableNotification",
       [&] { return OSCL_UserFeature_EnableNotification(nullptr, &watch_); },
       {{"malloc", {1, E_FAIL}}, {"fopen", {9}}, {"fread", {15}}}}};
  for (const Row& row : rows) Sweep(row);
  std::set<std::string> reached;
  for (const auto& [name, calls] : tally_) {
    for (const auto& [call, count] : calls) reached.insert(call);
  }
  EXPECT_EQ(reached.size(), std::size(kCalls));
  faults::Print(tally_);
}

TEST_F(CompatibilityFailure, leaves_the_code_of_its_errno) {
  ASSERT_TRUE(faults::Install());
  OSVERSIONINFO info;
  const auto version = [&] { return CodeUnless(GetVersionEx(&info) == 1); };
  const std::pair<const char*, std::function<uint32_t()>> calls[] = {
      {"open", [&] { return UseFile(); }},
      {"fstat", [&] { return UseFile(); }},
      {"read", [&] { return UseFile(); }},
      {"write", [&] { return UseFile(); }},
      {"lseek", [&] { return UseFile(); }},
      {"dlopen", UseModule},
      {"fopen", version}};
  const std::pair<int, uint32_t> codes[] = {
      {ENOENT, 5}, {EEXIST, 4}, {EINVAL, 2}, {EROFS, 6}, {EACCES, 16}};
  for (const auto& [name, call] : calls) {
    for (const auto& [error, code] : codes) {
      Reset();
      faults::Arm(name, 1, error);
      EXPECT_EQ(call(), kFailed + code) << name;
      EXPECT_TRUE(faults::Disarm());
    }
  }
}

}  // namespace
