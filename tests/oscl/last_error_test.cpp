// What each primitive leaves in gLastError: 0 when it succeeds, its code when it fails, and nothing
// where it does nothing.

#include "oscl/last_error.h"

#include <cerrno>
#include <functional>
#include <initializer_list>

#include "oscl/bounded_string.h"
#include "oscl/critical_section.h"
#include "oscl/file.h"
#include "oscl/module.h"
#include "oscl/registry.h"
#include "oscl/stubs.h"
#include "oscl/timing.h"
#include "oscl/version.h"
#include "oscl/whole_file.h"
#include "tests/oscl/registry_fixture.h"

namespace {

constexpr uint32_t kKept = 77;

// A call, by its text and result.
struct Call {
  const char* text;
  std::function<uint64_t()> make;
  uint64_t result;
};
#define CALL(call, result)                                      \
  {                                                             \
#call, [&] { return (uint64_t)(call); }, (uint64_t)(result) \
  }
#define VOID(call)                      \
  {                                     \
#call, [&] { return (call), 0; }, 0 \
  }

void ExpectCode(uint32_t code, std::initializer_list<Call> calls) {
  for (const Call& call : calls) {
    gLastError = kKept;
    EXPECT_EQ(call.make(), call.result) << call.text;
    EXPECT_EQ(gLastError, code) << call.text;
  }
}

class LastErrorTest : public RegistryFixture {};

TEST_F(LastErrorTest, is_0_after_every_success) {
  Store("[KEY]\n1\nHKEY_USERS\\a\n[VALUE]\nv\n4\n7\n");
  const char* path = path_.c_str();
  CRITICAL_SECTION section;
  LARGE_INTEGER ticks;
  OSVERSIONINFO info;
  HANDLE handle;
  HANDLE wait = &section;
  HKEY key;
  void* block;
  char bytes[8] = {};
  uint32_t size = 0;
  ExpectCode(
      0,
      {VOID(InitializeCriticalSection(&section)),
       VOID(EnterCriticalSection(&section)),
       VOID(LeaveCriticalSection(&section)),
       VOID(DeleteCriticalSection(&section)),
       CALL(QueryPerformanceFrequency(&ticks), 1),
       CALL(OSCL_QueryPerformanceFrequency(&ticks), 1),
       CALL(QueryPerformanceCounter(&ticks), 1),
       CALL(OSCL_QueryPerformanceCounter(&ticks), 1),
       VOID(Sleep(1)),
       VOID(OSCL_SleepMs(1)),
       CALL(CreateEventEx(nullptr, nullptr, 0, 0), 1),
       CALL(RegisterWaitForSingleObjectEx(nullptr, nullptr, nullptr, 0, 0), 1),
       CALL(RegisterWaitForSingleObject(&wait, nullptr, nullptr, nullptr, 0, 0), 1),
       CALL(wait == nullptr && (gLastError = 0, true), 1),
       CALL(UnregisterWaitEx(nullptr, nullptr), 1),
       CALL(RegNotifyChangeKeyValue(0, 0, 0, nullptr, 0), 0),
       CALL((block = AllocMem(8)) != nullptr, 1),
       VOID(FreeMem(block)),
       CALL((block = AllocAndZeroMem(8)) != nullptr, 1),
       VOID(FillMemory(block, 2, 0x1FE)),
       CALL(CopyMemory(bytes, block, 3), 0),
       CALL(bytes[0] == '\xFE' && bytes[1] == '\xFE' && bytes[2] == 0 && (gLastError = 0, true), 1),
       VOID(ZeroMemory(nullptr, 8)),
       VOID(FillMemory(nullptr, 8, 1)),
       VOID(FreeMem(block)),
       CALL(RegOpenKeyEx(HKEY_USERS, "a", 0, 0, &key), 0),
       CALL(RegOpenKeyExA(HKEY_USERS, "a", 0, 0, &key), 0),
       CALL(RegGetValue(1, "", "v", 0, nullptr, bytes, &size), 0),
       CALL(RegQueryValueExA(1, "v", nullptr, nullptr, bytes, nullptr), 0),
       CALL(RegSetValueEx(1, "v", 0, REG_SZ, "text", 5), 0),
       CALL(RegCloseKey_Linux(1), 0),
       CALL(OSCL_WriteFile(path, "abc", 3), S_OK),
       CALL(OSCL_AppendFile(path, "abc", 3), S_OK),
       CALL((block = OSCL_ReadFile(path, nullptr, &size)) != nullptr, 1),
       VOID(FreeMem(block)),
       CALL((handle = CreateFile(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, TRUNCATE_EXISTING,
                                 0, nullptr)) != INVALID_HANDLE_VALUE,
            1),
       CALL(WriteFile(handle, "abc", 3, &size, nullptr), 1),
       CALL(GetFileSize(handle, nullptr), 3),
       CALL(SetFilePointer(handle, 1, nullptr, FILE_BEGIN), 1),
       CALL(ReadFile(handle, bytes, 3, &size, nullptr), 1),
       CALL(CloseHandle(handle), 1),
       CALL(CloseHandle(INVALID_HANDLE_VALUE), 1),
       CALL((errno = EEXIST, handle = LoadLibrary(nullptr)) != nullptr && errno == EEXIST, 1),
       CALL(GetProcAddress(handle, "malloc") != nullptr, 1),
       CALL(GetProcAddress(handle, "no such function"), 0),
       CALL(FreeLibrary(handle), 1),
       CALL((handle = OSCL_LoadLibrary(nullptr)) != nullptr, 1),
       CALL(OSCL_GetProcAddress(handle, "malloc") != nullptr, 1),
       CALL(OSCL_FreeLibrary(handle), S_OK),
       CALL(GetModuleHandle("c"), 0),
       CALL(GetModuleFileName(nullptr, bytes, 8), 0),
       CALL(GetWindowsDirectory(bytes, 8), 0),
       CALL(GetSystemWow64Directory(bytes, 8), 0),
       CALL(GetVersionEx(&info), 1)});
}

TEST_F(LastErrorTest, stays_where_a_call_does_nothing_or_is_no_primitive) {
  char text[8] = {};
  FILE* file = stdout;
  struct tm local;
  const time_t moment = 0;
  ExpectCode(kKept,
             {CALL(GetLastError(), kKept), CALL(OSCL_GetLastError(), kKept),
              VOID(ShowErrorInfo(17)), VOID(NotifyRegistryChange()), VOID(DoxDebugBreak("", 1)),
              VOID(DoxPrintMessage(0, "")), CALL(ExpandEnvironmentStrings("$HOME", text, 8), 0),
              CALL(text[0], 0), VOID(FreeMem(nullptr)), CALL(strcpy_s(text, 8, "a"), 0),
              CALL(strncpy_s(text, 8, "a", 1), 0), CALL(strcat_s(text, 8, "a"), 0),
              CALL(memcpy_s(text, 8, "a", 2), 0), CALL(_snprintf_s(text, 8, 8, "%d", 77), 2),
              CALL(fopen_s(&file, "/nonexistent/file", "r") == ENOENT && file == nullptr, 1),
              CALL(localtime_s(&local, &moment), 0)});
}

TEST_F(LastErrorTest, is_the_code_of_a_failure) {
  const char* path = path_.c_str();
  HKEY key;
  uint32_t size;
  const auto open = [&](uint32_t access, uint32_t disposition) {
    return CreateFile(path, access, 0, nullptr, disposition, 0, nullptr);
  };
  ExpectCode(
      9, {CALL(RegOpenKeyEx(0, "a", 0, 0, &key), 9), CALL(RegSetValueEx(1, "v", 0, 1, "", 1), 9)});
  Store("[KEY]\n1\na\n");
  ExpectCode(1, {CALL(RegGetValue(HKEY_USERS, "", "v", 0, nullptr, nullptr, nullptr), 1)});
  ExpectCode(2, {CALL(RegSetValueEx(1, nullptr, 0, 1, "", 1), 2),
                 CALL(open(0, OPEN_EXISTING), INVALID_HANDLE_VALUE),
                 CALL(open(GENERIC_READ, 6), INVALID_HANDLE_VALUE),
                 CALL(SetFilePointer(nullptr, 0, nullptr, 3), 0xFFFFFFFF),
                 CALL(CopyMemory(nullptr, "", 1), 1),
                 CALL(OSCL_ReadFile(path, nullptr, nullptr), 0), CALL(GetVersionEx(nullptr), 0)});
  ExpectCode(4, {CALL(open(GENERIC_WRITE, CREATE_NEW), INVALID_HANDLE_VALUE)});
  ExpectCode(5, {CALL(OSCL_WriteFile("/nonexistent/file", "", 1), E_FAIL)});
  ExpectCode(7, {CALL(RegSetValueEx(2, "v", 0, 1, "", 1), 7)});
  ExpectCode(8, {CALL(RegQueryValueExA(1, "v", nullptr, nullptr, nullptr, nullptr), 8)});
  ExpectCode(15, {CALL(RegOpenKeyEx(0, "b", 0, 0, &key), 15)});
  ExpectCode(16, {CALL(GetFileSize(INVALID_HANDLE_VALUE, &size), 0xFFFFFFFF),
                  CALL(ReadFile(INVALID_HANDLE_VALUE, nullptr, 0, &size, nullptr), 0),
                  CALL(WriteFile(INVALID_HANDLE_VALUE, nullptr, 0, &size, nullptr), 0),
                  CALL(FreeLibrary(nullptr), 0), CALL(OSCL_FreeLibrary(nullptr), E_FAIL)});
  // The loader sets no errno, and an older one is none of its business.
  ExpectCode(0, {CALL((errno = EEXIST, LoadLibrary("libnonexistent_module.so")), 0)});
}

}  // namespace
