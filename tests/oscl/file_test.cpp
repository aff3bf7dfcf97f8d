#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "oscl/file.h"
#include "oscl/module.h"
#include "oscl/version.h"
#include "oscl/whole_file.h"
#include "tests/oscl/file_fixture.h"

namespace {

constexpr uint32_t kReadWrite = GENERIC_READ | GENERIC_WRITE;

class FileTest : public FileFixture {
 protected:
  HANDLE Open(uint32_t access, uint32_t disposition) const {
    return CreateFile(path_.c_str(), access, 0, nullptr, disposition, 0, nullptr);
  }
  static uint32_t CodeIf(bool failed) { return failed ? GetLastError() : 0xFFFFFFFF; }
};

TEST_F(FileTest, dispositions_open_create_and_truncate) {
  umask(0);
  int flags = 0;
  const auto codeOf = [&](uint32_t access, uint32_t disposition) {
    HANDLE file = Open(access, disposition);
    const uint32_t code = GetLastError();
    EXPECT_EQ(file == INVALID_HANDLE_VALUE, code != 0);
    flags = fcntl(static_cast<int>(reinterpret_cast<intptr_t>(file)), F_GETFL) & O_ACCMODE;
    if (code == 0) CloseHandle(file);
    return code;
  };
  for (const uint32_t access : {0u, 1u, 0xE0000000u, GENERIC_READ | 1}) {
    EXPECT_EQ(codeOf(access, CREATE_ALWAYS), OSCL_ERROR_INVALID_PARAMETER) << access;
  }
  for (const uint32_t disposition : {0u, 6u, 0xFFFFFFFFu}) {
    EXPECT_EQ(codeOf(kReadWrite, disposition), OSCL_ERROR_INVALID_PARAMETER) << disposition;
  }
  EXPECT_EQ(codeOf(GENERIC_READ, OPEN_EXISTING), OSCL_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(codeOf(kReadWrite, TRUNCATE_EXISTING), OSCL_ERROR_FILE_NOT_FOUND);
  for (const int opened : {O_RDWR, O_RDONLY}) {
    EXPECT_EQ(codeOf(GENERIC_READ, OPEN_ALWAYS), 0u);
    EXPECT_EQ(flags, opened) << "what is asked for counts only when the file is there";
  }
  struct stat status;
  ASSERT_EQ(stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0660u);
  EXPECT_EQ(codeOf(GENERIC_WRITE, CREATE_NEW), OSCL_ERROR_FILE_EXISTS);
  Store("0123456789");
  EXPECT_EQ(codeOf(GENERIC_WRITE, CREATE_ALWAYS) + codeOf(GENERIC_WRITE, OPEN_ALWAYS), 0u);
  EXPECT_EQ(Stored(), "0123456789") << "neither may truncate";
  EXPECT_EQ(codeOf(kReadWrite, TRUNCATE_EXISTING), 0u);
  EXPECT_EQ(Stored(), "");
}

TEST_F(FileTest, reads_and_writes_at_the_file_position) {
  HANDLE file = Open(kReadWrite, CREATE_NEW);
  uint32_t done = 7;
  EXPECT_EQ(WriteFile(file, "abcdef", 6, &done, nullptr) + done, 7u);
  EXPECT_EQ(SetFilePointer(file, -4, nullptr, FILE_END), 2u);
  EXPECT_EQ(SetFilePointer(file, 1, nullptr, FILE_CURRENT), 3u);
  char read[8] = {};
  EXPECT_EQ(ReadFile(file, read, sizeof(read), &done, nullptr) + done, 4u);
  EXPECT_STREQ(read, "def");
  for (const uint32_t method : {0u, 3u}) {
    EXPECT_EQ(SetFilePointer(file, 0, nullptr, FILE_BEGIN) + GetLastError(), 0u);
    EXPECT_EQ(CodeIf(SetFilePointer(file, -1, nullptr, method) == 0xFFFFFFFF),
              OSCL_ERROR_INVALID_PARAMETER);
  }
  uint32_t high = 7;
  if (truncate(path_.c_str(), (5LL << 30) + 3) == 0) {
    EXPECT_EQ(GetFileSize(file, &high), (1u << 30) + 3) << "cut to 32 bits";
  }
  CloseHandle(file);
  done = 7;
  EXPECT_EQ(CodeIf(ReadFile(file, read, 1, &done, nullptr) == 0), OSCL_ERROR_UNKNOWN);
  EXPECT_EQ(CodeIf(WriteFile(file, read, 1, &done, nullptr) == 0), OSCL_ERROR_UNKNOWN);
  EXPECT_EQ(CodeIf(GetFileSize(file, &high) == 0xFFFFFFFF), OSCL_ERROR_UNKNOWN);
  EXPECT_EQ(done + high, 14u) << "neither is written";
  EXPECT_EQ(CodeIf(CloseHandle(file) == 1), OSCL_ERROR_SUCCESS);
}

TEST_F(FileTest, a_whole_file_helper_that_fails_keeps_the_code_of_the_failing_step) {
  EXPECT_EQ(OSCL_AppendFile(path_.c_str(), "0123", 4), S_OK);
  EXPECT_EQ(OSCL_AppendFile(path_.c_str(), "456789", 6), S_OK);
  EXPECT_EQ(OSCL_WriteFile(path_.c_str(), "abc", 3), S_OK);
  uint32_t size = 0;
  void* content = OSCL_ReadFile(path_.c_str(), nullptr, &size);
  ASSERT_NE(content, nullptr);
  EXPECT_EQ(std::string(static_cast<char*>(content), size), "abc3456789");
  FreeMem(content);
  Store("");
  // One is shorter than it claims to be; a folder opens and has a size, but no content.
  for (const auto& [path, code] : {std::pair(path_.c_str(), 0u),
                                   {"/sys/devices/system/cpu/online", 0u},
                                   {"/tmp", OSCL_ERROR_UNKNOWN},
                                   {"/nonexistent/file", OSCL_ERROR_FILE_NOT_FOUND}}) {
    if (path[1] == 's' && access(path, R_OK) != 0) continue;
    size = 7;
    EXPECT_EQ(CodeIf(OSCL_ReadFile(path, nullptr, &size) == nullptr), code);
    EXPECT_EQ(size, 0u) << path;
  }
  for (const auto write : {OSCL_WriteFile, OSCL_AppendFile}) {
    EXPECT_EQ(CodeIf(write("/dev/full", "a", 1) == E_FAIL), OSCL_ERROR_UNKNOWN);
    EXPECT_EQ(CodeIf(write("/nonexistent/file", "a", 1) == E_FAIL), OSCL_ERROR_FILE_NOT_FOUND);
  }
}

TEST_F(FileTest, memory_is_filled_copied_and_counted) {
  const int32_t blocks = gAllocationCount;
  auto* block = static_cast<char*>(AllocAndZeroMem(3));
  FillMemory(block, 2, 0x1FE);
  EXPECT_EQ(std::string(block, 3), std::string("\xFE\xFE\0", 3));
  EXPECT_EQ(CopyMemory(block, "xyz", 3) + std::memcmp(block, "xyz", 3), 0);
  EXPECT_EQ(CodeIf(CopyMemory(block, nullptr, 3) == 1), OSCL_ERROR_INVALID_PARAMETER);
  ZeroMemory(nullptr, 3);
  EXPECT_EQ(GetLastError(), OSCL_ERROR_SUCCESS);
  EXPECT_EQ(gAllocationCount, blocks + 1);
  FreeMem(block);
  FreeMem(nullptr);
}

TEST_F(FileTest, modules_and_the_version_come_from_the_system) {
  errno = EEXIST;
  EXPECT_EQ(OSCL_LoadLibrary("libnonexistent_module.so"), nullptr);
  EXPECT_NE(GetLastError(), OSCL_ERROR_FILE_EXISTS) << "an older errno is none of its business";
  HANDLE module = OSCL_LoadLibrary("libc.so.6");
  EXPECT_NE(OSCL_GetProcAddress(module, "getpid"), nullptr);
  EXPECT_EQ(GetProcAddress(module, nullptr), nullptr);
  EXPECT_EQ(OSCL_FreeLibrary(module), S_OK);
  EXPECT_EQ(CodeIf(OSCL_FreeLibrary(nullptr) == E_FAIL), OSCL_ERROR_UNKNOWN);
  OSVERSIONINFO info;
  std::memset(&info, 0xFF, sizeof(info));
  ASSERT_EQ(GetVersionEx(&info), 1);
  const std::string found = "Linux version " + std::to_string(info.dwMajorVersion) + "." +
                            std::to_string(info.dwMinorVersion);
  std::string version;
  std::getline(std::ifstream("/proc/version"), version);
  EXPECT_EQ(version.rfind(found, 0), 0u) << version << " read as " << found;
  EXPECT_EQ(info.dwOSVersionInfoSize, 148u);
  EXPECT_EQ(info.dwBuildNumber + info.szCSDVersion[127], 0u);
}

}  // namespace
