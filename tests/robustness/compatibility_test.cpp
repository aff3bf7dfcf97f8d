// Tests what the primitives of the compatibility layer return and which code they leave in
// gLastError: after success, after a failure of a libc call inside them, and after wrong arguments.

#include <limits>

#include "oscl/bounded_string.h"
#include "oscl/critical_section.h"
#include "oscl/file.h"
#include "oscl/module.h"
#include "oscl/registry.h"
#include "oscl/stubs.h"
#include "oscl/timing.h"
#include "oscl/user_feature.h"
#include "oscl/version.h"
#include "oscl/whole_file.h"
#include "tests/oscl/registry_fixture.h"
#include "tests/robustness/libc_faults.h"

namespace {

// The file has more values than the reader allocates room for at first.
constexpr char kRegistry[] =
    "[KEY]\n1\nHKEY_CURRENT_USER\\a key of some length\n[VALUE]\nname of some length\n1\ntext\n"
    "[VALUE]\nb\n4\n7\n[VALUE]\nc\n4\n7\n[VALUE]\nd\n4\n7\n[VALUE]\ne\n4\n7\n[VALUE]\nf\n4\n7\n"
    "[KEY]\n2\nb\n[KEY]\n3\nc\n[KEY]\n4\nd\n[KEY]\n5\ne\n[KEY]\n6\nf\n[KEY]\n7\ng\n";
constexpr char kKey[] = "a key of some length";
constexpr char kValue[] = "name of some length";

constexpr uint32_t kKept = 77;  // the value of gLastError before each call

// A call, its result on success, and its text.
using Call = std::tuple<std::function<uint64_t()>, uint64_t, const char*>;
#define CALL(call, result) Call([&] { return (uint64_t)(call); }, result, #call)
#define RUN(call) CALL((call, 0), 0)

class Compatibility : public RegistryFixture {
 protected:
  ~Compatibility() override {
    OSCL_UserFeature_DeleteValues(&toWrite_);
    Reset();
    std::remove(file_.c_str());
  }

  void Reset() {
    FreeMem(std::exchange(block_, nullptr));
    FreeMem(std::exchange(watch_.notifyData, nullptr));
    if (handle_ != INVALID_HANDLE_VALUE) CloseHandle(std::exchange(handle_, INVALID_HANDLE_VALUE));
    OSCL_UserFeature_DeleteValues(&read_);
    Store(kRegistry);
    std::ofstream(file_) << "content";
  }

  static void ExpectCode(uint32_t code, const std::vector<Call>& calls) {
    for (const auto& [call, result, text] : calls) {
      gLastError = kKept;
      EXPECT_EQ(call(), result) << text;
      EXPECT_EQ(gLastError, code) << text;
    }
  }

  // Makes the calls while the n-th call of `failing` fails. Returns "" if there is no n-th call,
  // else "ok", or the result of the first call that fails and its code in gLastError. If the calls
  // changed the registry, its new content follows, or "written" if it is the same as
  // after success.
  std::string Outcome(const std::vector<Call>& calls, const std::string& failing, uint32_t number) {
    Reset();
    std::string outcome = "ok";
    faults::Arm(failing, number, ENOENT);
    for (const auto& [call, expected, text] : calls) {
      gLastError = kKept;
      const auto result = static_cast<uint32_t>(call());
      if (outcome != "ok" || (result == expected && gLastError == 0)) continue;
      outcome = result == E_FAIL ? "E_FAIL" : std::to_string(static_cast<int32_t>(result));
      outcome += "/" + std::to_string(gLastError);
    }
    if (!faults::Disarm()) return "";
    const std::string registry = Stored();
    if (registry == kRegistry) return outcome;
    return outcome + "," + (registry == written_ ? "written" : registry);
  }

  // Compares the outcomes with a table. It has a line for each libc function that the calls use,
  // with the outcomes of its first failure, its second, and so on. For memory, the number of calls
  // depends on the standard library, so the line lists only the different outcomes.
  void ExpectFailures(const std::string& expected, const std::vector<Call>& calls) {
    Reset();
    ExpectCode(0, calls);
    written_ = Stored();
    std::string table;
    std::istringstream names(
        "malloc open read write close lseek fstat fopen fread fwrite fclose dlopen dlsym dlclose "
        "usleep clock_getres clock_gettime pthread_mutex_init pthread_mutex_lock "
        "pthread_mutex_unlock pthread_mutex_destroy");
    for (std::string failing; names >> failing;) {
      std::string line, outcome;
      std::set<std::string> kinds;
      for (uint32_t number = 1; !(outcome = Outcome(calls, failing, number)).empty(); ++number) {
        if (failing != "malloc" || kinds.insert(outcome).second) line += " " + outcome;
      }
      if (!line.empty()) table += failing + ":" + line + "\n";
    }
    EXPECT_EQ(table, expected) << std::get<2>(calls[0]);
  }

  const std::string file_ = path_ + ".file";
  std::string written_;  // the registry after successful calls
  unsigned char data_[32] = {};
  uint32_t length_ = 0;
  void* block_ = nullptr;
  HANDLE handle_ = INVALID_HANDLE_VALUE, module_ = nullptr, wait_ = &wait_;
  CRITICAL_SECTION section_ = PTHREAD_MUTEX_INITIALIZER;
  LARGE_INTEGER ticks_ = 0;
  OSVERSIONINFO info_ = {};
  UserFeatureKey read_ = {1, kKey, nullptr, 0}, toWrite_ = read_;
  UserFeatureNotifyKey watch_ = {1, kKey, 0, nullptr};
};

TEST_F(Compatibility, leaves_0_on_success_and_reports_every_failure_of_libc) {
  const char* file = file_.c_str();
  ExpectFailures(
      "malloc: 0/1\nopen: 0/5 0/5 E_FAIL/5 ok\nread: 0/5 0/5\nwrite: 0/5 E_FAIL/5 E_FAIL/5\n"
      "close: ok ok ok ok ok\nlseek: -1/5 ok\nfstat: -1/5 0/5\n",
      {CALL((block_ = AllocMem(8)) != nullptr, 1), RUN(FreeMem(std::exchange(block_, nullptr))),
       CALL((block_ = AllocAndZeroMem(8)) != nullptr, 1), RUN(FillMemory(block_, 2, 0x1FE)),
       CALL(CopyMemory(data_, block_, 3) + (data_[1] != 0xFE) + data_[2], 0),
       RUN(ZeroMemory(nullptr, 8)), RUN(FillMemory(nullptr, 8, 1)),
       RUN(FreeMem(std::exchange(block_, nullptr))),
       CALL((handle_ = CreateFile(file, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0,
                                  nullptr)) != INVALID_HANDLE_VALUE,
            1),
       CALL(GetFileSize(handle_, nullptr), 7),
       CALL(ReadFile(handle_, data_, 7, &length_, nullptr), 1),
       CALL(WriteFile(handle_, "x", 1, &length_, nullptr), 1),
       CALL(SetFilePointer(handle_, 1, nullptr, FILE_BEGIN), 1),
       CALL(CloseHandle(std::exchange(handle_, INVALID_HANDLE_VALUE)), 1),
       CALL(CloseHandle(INVALID_HANDLE_VALUE), 1),
       CALL((block_ = OSCL_ReadFile(file, nullptr, &length_)) != nullptr, 1),
       CALL(OSCL_WriteFile(file, "x", 1), S_OK), CALL(OSCL_AppendFile(file, "x", 1), S_OK)});
  ExpectFailures(
      "fopen: 0/5\nfclose: ok\ndlopen: 0/5 0/5\ndlsym: 0/0 ok 0/0\ndlclose: 0/16 E_FAIL/16\n",
      {CALL((errno = 7, module_ = LoadLibrary("libkalodll.so")) && errno == 7, 1),
       CALL(GetProcAddress(module_, "KaloInit3") != nullptr, 1),
       CALL(GetProcAddress(module_, "no such function"), 0), CALL(FreeLibrary(module_), 1),
       CALL((module_ = OSCL_LoadLibrary(nullptr)) != nullptr, 1),
       CALL(OSCL_GetProcAddress(module_, "malloc") != nullptr, 1),
       CALL(OSCL_FreeLibrary(module_), S_OK), CALL(GetModuleHandle("c"), 0),
       CALL(GetModuleFileName(nullptr, nullptr, 8), 0), CALL(GetWindowsDirectory(nullptr, 8), 0),
       CALL(GetSystemWow64Directory(nullptr, 8), 0), CALL(GetVersionEx(&info_), 1),
       CALL(CreateEventEx(nullptr, nullptr, 0, 0), 1),
       CALL(RegisterWaitForSingleObjectEx(nullptr, nullptr, nullptr, 0, 0), 1),
       CALL(RegisterWaitForSingleObject(&wait_, 0, nullptr, nullptr, 0, 0), 1),
       CALL(UnregisterWaitEx(nullptr, nullptr), 1),
       CALL(RegNotifyChangeKeyValue(0, 0, 0, nullptr, 0), 0), CALL(RegCloseKey_Linux(1), 0)});
  EXPECT_EQ(wait_, nullptr);
  ExpectFailures(
      "usleep: 0/77 0/77\nclock_getres: 0/77 0/77 0/77 0/77\nclock_gettime: 0/77 0/77\n"
      "pthread_mutex_init: 0/77\npthread_mutex_lock: 0/77\npthread_mutex_unlock: 0/77\n"
      "pthread_mutex_destroy: 0/77\n",
      {RUN(InitializeCriticalSection(&section_)), RUN(EnterCriticalSection(&section_)),
       RUN(LeaveCriticalSection(&section_)), RUN(DeleteCriticalSection(&section_)),
       CALL(QueryPerformanceFrequency(&ticks_), 1), CALL(QueryPerformanceCounter(&ticks_), 1),
       CALL(OSCL_QueryPerformanceFrequency(&ticks_), 1),
       CALL(OSCL_QueryPerformanceCounter(&ticks_), 1), RUN(Sleep(7)), RUN(OSCL_SleepMs(7))});
  ExpectFailures(
      "malloc: 1/1 E_FAIL/1 E_FAIL/0 ok\nfstat: ok ok ok ok ok ok ok ok ok\n"
      "fopen: 9/9 9/9 9/9 9/9 ok ok 9/9 ok ok\nfread: 7/7 7/7 15/15 15/15 ok ok 15/15 ok ok\n"
      "fclose: ok ok ok ok ok ok ok ok ok\n",
      {CALL(RegQueryValueExA(1, kValue, nullptr, nullptr, data_, &length_), 0),
       CALL(OSCL_UserFeature_EnableNotification(nullptr, &watch_), 0),
       CALL(OSCL_UserFeature_ReadValue(nullptr, &read_, kValue, USER_FEATURE_STRING), 0),
       CALL(OSCL_UserFeature_ReadValue(nullptr, &read_, kValue, USER_FEATURE_NUMBER32_A), 0)});
  ExpectFailures(
      "malloc: 1/1 E_FAIL/0\nfstat: ok ok ok\nfopen: 9/9 E_FAIL/0 E_FAIL/0\n"
      "fread: 15/15 E_FAIL/0 E_FAIL/0\nfclose: ok ok ok\n",
      {CALL(OSCL_UserFeature_ReadValue(nullptr, &read_, kValue, USER_FEATURE_MULTI_STRING), 0)});
  OSCL_UserFeature_ReadValueInit(&toWrite_, "name", USER_FEATURE_MULTI_STRING);
  char* strings = static_cast<char*>(std::memcpy(AllocMem(4), "a\0b", 4));
  OSCL_UserFeature_SetMultiStringValue(toWrite_.values, strings, 4);
  ExpectFailures(
      "malloc: 1/1 E_FAIL/0 1/0\nfstat: ok,written ok,written ok,written\n"
      "fopen: 9/9 9/0 9/0 10/0\nfread: 15/15 7/0 7/0\nfwrite: 10/0,\n"
      "fclose: ok,written ok,written ok,written 10/0,written\n",
      {CALL(OSCL_UserFeature_WriteValues(nullptr, &toWrite_), 0)});
}

TEST_F(Compatibility, sets_the_code_of_a_wrong_call_and_otherwise_keeps_it) {
  const char* path = path_.c_str();
  char text[8] = {};
  FILE* file = stdout;
  struct tm local;
  const time_t moment = 86400, never = std::numeric_limits<time_t>::max();
  Store("");
  ExpectCode(kKept,
             {CALL(GetLastError(), kKept), CALL(OSCL_GetLastError(), kKept), RUN(ShowErrorInfo(17)),
              RUN(NotifyRegistryChange()), RUN(DoxDebugBreak("", 1)), RUN(DoxPrintMessage(0, "")),
              RUN(FreeMem(nullptr)), CALL(ExpandEnvironmentStrings("$HOME", text, 8), 0),
              CALL(text[0], 0), CALL(strcpy_s(text, 8, "a"), 0),
              CALL(strncpy_s(text, 8, "a", 1), 0), CALL(strcat_s(text, 8, "a"), 0),
              CALL(memcpy_s(text, 8, "a", 2), 0), CALL(_snprintf_s(text, 8, 8, "%d", 77), 2),
              CALL(fopen_s(&file, "/nonexistent/file", "r") == ENOENT && file == nullptr, 1),
              CALL(localtime_s(&local, &moment) == 0 && mktime(&local) == moment, 1),
              CALL(localtime_s(nullptr, &moment), 1), CALL(localtime_s(&local, &never), 1)});
  ExpectCode(2, {CALL(SetFilePointer(nullptr, 0, nullptr, 3), 0xFFFFFFFF),
                 CALL(CopyMemory(nullptr, "", 1), 1), CALL(GetVersionEx(nullptr), 0),
                 CALL(OSCL_ReadFile(path, nullptr, nullptr), 0),
                 CALL(OSCL_WriteFile(nullptr, "", 0), E_FAIL)});
  ExpectCode(
      4, {CALL(CreateFile(path, GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr), UINT64_MAX)});
  ExpectCode(16, {CALL(FreeLibrary(nullptr), 0), CALL(OSCL_FreeLibrary(nullptr), E_FAIL)});
  faults::Arm("open", 1, EROFS);
  ExpectCode(6, {CALL(OSCL_WriteFile(path, "", 0), E_FAIL)});
  // LoadLibrary must use and keep the errno of a loader that sets one, and otherwise keep an older
  // one.
  for (const auto& [ofLoader, code, left] : {std::tuple(EACCES, 16, EACCES), {0, 0, EEXIST}}) {
    faults::Arm("dlopen", 1, ofLoader);
    ExpectCode(code, {CALL((errno = EEXIST, LoadLibrary("libkalodll.so")), 0)});
    EXPECT_EQ(errno, left);
  }
}

}  // namespace
