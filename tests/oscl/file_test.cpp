#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "oscl/file.h"
#include "oscl/last_error.h"
#include "oscl/memory.h"
#include "oscl/module.h"
#include "oscl/version.h"
#include "oscl/whole_file.h"

extern "C" int UseFromC(void);

namespace {

constexpr uint32_t kReadWrite = GENERIC_READ | GENERIC_WRITE;

class FileTest : public testing::Test {
 protected:
  void SetUp() override {
    path_ = testing::TempDir() + "oscl_file." + std::to_string(getpid());
    nextDescriptor_ = NextDescriptor();
    blocks_ = gAllocationCount;
  }
  void TearDown() override {
    EXPECT_EQ(NextDescriptor(), nextDescriptor_) << "a handle was left open";
    EXPECT_EQ(gAllocationCount, blocks_);
    std::remove(path_.c_str());
  }

  HANDLE Open(uint32_t access, uint32_t disposition) const {
    return CreateFile(path_.c_str(), access, 0, nullptr, disposition, 0, nullptr);
  }
  uint32_t CodeOfOpening(uint32_t access, uint32_t disposition) const {
    HANDLE file = Open(access, disposition);
    const uint32_t code = GetLastError();
    if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
    EXPECT_EQ(file == INVALID_HANDLE_VALUE, code != 0);
    return code;
  }
  std::string Content() const {
    std::ifstream file(path_);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  void Fill(const std::string& text) const { std::ofstream(path_) << text; }

  static int NextDescriptor() {
    const int descriptor = dup(0);
    close(descriptor);
    return descriptor;
  }

  std::string path_;
  int nextDescriptor_ = 0;
  int32_t blocks_ = 0;
};

TEST_F(FileTest, dispositions_open_create_and_truncate) {
  EXPECT_EQ(CodeOfOpening(GENERIC_READ, OPEN_EXISTING), OSCL_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(CodeOfOpening(GENERIC_WRITE, TRUNCATE_EXISTING), OSCL_ERROR_FILE_NOT_FOUND);
  umask(0);
  EXPECT_EQ(CodeOfOpening(GENERIC_WRITE, CREATE_NEW), 0u);
  struct stat status;
  ASSERT_EQ(stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0660u);
  EXPECT_EQ(CodeOfOpening(GENERIC_WRITE, CREATE_NEW), OSCL_ERROR_FILE_EXISTS);
  Fill("0123456789");
  EXPECT_EQ(CodeOfOpening(GENERIC_WRITE, CREATE_ALWAYS), 0u);
  EXPECT_EQ(CodeOfOpening(GENERIC_WRITE, OPEN_ALWAYS), 0u);
  EXPECT_EQ(Content(), "0123456789") << "neither may truncate";
  EXPECT_EQ(CodeOfOpening(kReadWrite, TRUNCATE_EXISTING), 0u);
  EXPECT_EQ(Content(), "");
}

TEST_F(FileTest, a_file_made_by_open_always_is_readable_and_writable_whatever_was_asked) {
  HANDLE file = Open(GENERIC_READ, OPEN_ALWAYS);
  EXPECT_EQ(fcntl(static_cast<int>(reinterpret_cast<intptr_t>(file)), F_GETFL) & O_ACCMODE, O_RDWR);
  CloseHandle(file);
  file = Open(GENERIC_READ, OPEN_ALWAYS);
  EXPECT_EQ(fcntl(static_cast<int>(reinterpret_cast<intptr_t>(file)), F_GETFL) & O_ACCMODE,
            O_RDONLY);
  CloseHandle(file);
}

TEST_F(FileTest, arguments_that_mean_nothing_are_code_2) {
  for (uint32_t access : {0u, 1u, 0x20000000u, 0xE0000000u, GENERIC_READ | 1}) {
    EXPECT_EQ(CodeOfOpening(access, CREATE_ALWAYS), OSCL_ERROR_INVALID_PARAMETER) << access;
  }
  for (uint32_t disposition : {0u, 6u, 0xFFFFFFFFu}) {
    EXPECT_EQ(CodeOfOpening(kReadWrite, disposition), OSCL_ERROR_INVALID_PARAMETER);
  }
  EXPECT_EQ(access(path_.c_str(), F_OK), -1) << "nothing may have been created";
}

TEST_F(FileTest, reads_and_writes_at_the_file_position) {
  HANDLE file = Open(kReadWrite, CREATE_NEW);
  uint32_t done = 7;
  EXPECT_EQ(WriteFile(file, "abcdef", 6, &done, nullptr), 1);
  EXPECT_EQ(done, 6u);
  EXPECT_EQ(SetFilePointer(file, -4, nullptr, FILE_END), 2u);
  EXPECT_EQ(SetFilePointer(file, 1, nullptr, FILE_CURRENT), 3u);
  char read[8] = {};
  EXPECT_EQ(ReadFile(file, read, sizeof(read), &done, nullptr), 1);
  EXPECT_EQ(done, 3u);
  EXPECT_STREQ(read, "def");
  EXPECT_EQ(SetFilePointer(file, -1, nullptr, FILE_BEGIN), 0xFFFFFFFFu);
  EXPECT_EQ(GetLastError(), OSCL_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(SetFilePointer(file, 0, nullptr, FILE_BEGIN), 0u);
  EXPECT_EQ(GetLastError(), OSCL_ERROR_SUCCESS);
  EXPECT_EQ(SetFilePointer(file, 0, nullptr, 3), 0xFFFFFFFFu);
  EXPECT_EQ(GetLastError(), OSCL_ERROR_INVALID_PARAMETER);
  CloseHandle(file);
  done = 7;
  EXPECT_EQ(ReadFile(file, read, 1, &done, nullptr), 0);
  EXPECT_EQ(GetLastError(), OSCL_ERROR_UNKNOWN);
  EXPECT_EQ(WriteFile(file, read, 1, &done, nullptr), 0);
  EXPECT_EQ(done, 7u);
  EXPECT_EQ(GetFileSize(file, nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(CloseHandle(file), 1);
  EXPECT_EQ(GetLastError(), OSCL_ERROR_SUCCESS);
}

TEST_F(FileTest, the_size_of_a_huge_file_is_cut_to_32_bits) {
  Fill("");
  if (truncate(path_.c_str(), (5LL << 30) + 3) != 0) GTEST_SKIP() << "no room for a sparse file";
  HANDLE file = Open(GENERIC_READ, OPEN_EXISTING);
  uint32_t high = 7;
  EXPECT_EQ(GetFileSize(file, &high), (1u << 30) + 3);
  EXPECT_EQ(high, 7u);
  CloseHandle(file);
}

TEST_F(FileTest, whole_files_are_written_over_appended_to_and_read_back) {
  EXPECT_EQ(OSCL_AppendFile(path_.c_str(), "0123", 4), S_OK);
  EXPECT_EQ(OSCL_AppendFile(path_.c_str(), "456789", 6), S_OK);
  EXPECT_EQ(OSCL_WriteFile(path_.c_str(), "abc", 3), S_OK);
  EXPECT_EQ(GetLastError(), OSCL_ERROR_SUCCESS);
  uint32_t size = 0;
  void* content = OSCL_ReadFile(path_.c_str(), nullptr, &size);
  ASSERT_NE(content, nullptr);
  EXPECT_EQ(std::string(static_cast<char*>(content), size), "abc3456789");
  FreeMem(content);
}

TEST_F(FileTest, a_whole_file_helper_that_fails_keeps_the_code_of_the_failing_step) {
  uint32_t size = 7;
  EXPECT_EQ(OSCL_ReadFile(path_.c_str(), nullptr, &size), nullptr);
  EXPECT_EQ(GetLastError(), OSCL_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(size, 0u);
  Fill("");
  EXPECT_EQ(OSCL_ReadFile(path_.c_str(), nullptr, &size), nullptr);
  EXPECT_EQ(GetLastError(), OSCL_ERROR_SUCCESS);
  // This file is shorter than it claims to be; a directory opens and has a size, but no content.
  const char* const overstated = "/sys/devices/system/cpu/online";
  if (access(overstated, R_OK) == 0) {
    EXPECT_EQ(OSCL_ReadFile(overstated, nullptr, &size), nullptr);
    EXPECT_EQ(GetLastError(), OSCL_ERROR_SUCCESS);
  }
  EXPECT_EQ(OSCL_ReadFile(testing::TempDir().c_str(), nullptr, &size), nullptr);
  EXPECT_EQ(GetLastError(), OSCL_ERROR_UNKNOWN);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(OSCL_WriteFile("/dev/full", "a", 1), E_FAIL);
  EXPECT_EQ(GetLastError(), OSCL_ERROR_UNKNOWN);
  EXPECT_EQ(OSCL_AppendFile("/dev/full", "a", 1), E_FAIL);
  EXPECT_EQ(GetLastError(), OSCL_ERROR_UNKNOWN);
  EXPECT_EQ(OSCL_AppendFile("/nonexistent/file", "a", 1), E_FAIL);
  EXPECT_EQ(GetLastError(), OSCL_ERROR_FILE_NOT_FOUND);
}

TEST_F(FileTest, memory_is_filled_copied_and_counted) {
  auto* block = static_cast<unsigned char*>(AllocAndZeroMem(3));
  void* other = AllocMem(0);
  EXPECT_EQ(gAllocationCount, blocks_ + 2);
  EXPECT_EQ(std::memcmp(block, "\0\0\0", 3), 0);
  FillMemory(block, 2, 0x1FE);
  EXPECT_EQ(std::memcmp(block, "\xFE\xFE\0", 3), 0);
  EXPECT_EQ(CopyMemory(block, "xyz", 3), 0);
  EXPECT_EQ(std::memcmp(block, "xyz", 3), 0);
  EXPECT_EQ(CopyMemory(block, nullptr, 3), 1);
  EXPECT_EQ(GetLastError(), OSCL_ERROR_INVALID_PARAMETER);
  ZeroMemory(nullptr, 3);
  EXPECT_EQ(GetLastError(), OSCL_ERROR_SUCCESS);
  FreeMem(block);
  FreeMem(other);
  FreeMem(nullptr);
  EXPECT_EQ(gAllocationCount, blocks_);
}

TEST_F(FileTest, modules_are_loaded_searched_and_released) {
  errno = EEXIST;
  EXPECT_EQ(OSCL_LoadLibrary("libnonexistent_module.so"), nullptr);
  EXPECT_NE(GetLastError(), OSCL_ERROR_FILE_EXISTS) << "an older errno is none of its business";
  HANDLE module = OSCL_LoadLibrary("libc.so.6");
  ASSERT_NE(module, nullptr);
  EXPECT_NE(OSCL_GetProcAddress(module, "getpid"), nullptr);
  EXPECT_EQ(GetProcAddress(module, "no_such_symbol_here"), nullptr);
  EXPECT_EQ(GetProcAddress(module, nullptr), nullptr);
  EXPECT_EQ(GetLastError(), OSCL_ERROR_SUCCESS);
  EXPECT_EQ(OSCL_FreeLibrary(module), S_OK);
  EXPECT_EQ(OSCL_FreeLibrary(nullptr), E_FAIL);
  EXPECT_EQ(GetLastError(), OSCL_ERROR_UNKNOWN);
}

TEST_F(FileTest, the_version_is_the_kernels) {
  OSVERSIONINFO info;
  std::memset(&info, 0xFF, sizeof(info));
  ASSERT_EQ(GetVersionEx(&info), 1);
  std::string word;
  std::ifstream version("/proc/version");
  version >> word >> word >> word;
  const std::string found =
      std::to_string(info.dwMajorVersion) + "." + std::to_string(info.dwMinorVersion);
  EXPECT_EQ(word.compare(0, found.size(), found), 0) << word << " read as " << found;
  EXPECT_EQ(info.dwOSVersionInfoSize, 148u);
  EXPECT_EQ(info.dwBuildNumber, 0u);
  EXPECT_EQ(info.szCSDVersion[127], 0);
}

TEST_F(FileTest, a_c_program_uses_the_headers) { EXPECT_EQ(UseFromC(), 0); }

}  // namespace
