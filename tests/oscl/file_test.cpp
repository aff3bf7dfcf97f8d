#include "oscl/file.h"
#include "oscl/version.h"
#include "oscl/whole_file.h"
#include "tests/oscl/registry_fixture.h"

namespace {

constexpr uint32_t kReadWrite = GENERIC_READ | GENERIC_WRITE;

class FileTest : public RegistryFixture {
 protected:
  FileTest() : RegistryFixture("/proc/version") {}
  HANDLE Open(uint32_t access, uint32_t disposition) const {
    return CreateFile(path_.c_str(), access, 0, nullptr, disposition, 0, nullptr);
  }
  // Returns how the file was opened, or the error code.
  int Opened(uint32_t access, uint32_t disposition) const {
    HANDLE file = Open(access, disposition);
    if (file == INVALID_HANDLE_VALUE) return static_cast<int>(GetLastError());
    EXPECT_EQ(GetLastError(), OSCL_ERROR_SUCCESS);
    const int flags = fcntl(static_cast<int>(reinterpret_cast<intptr_t>(file)), F_GETFL);
    CloseHandle(file);
    return -(flags & O_ACCMODE);
  }
  static uint32_t CodeIf(bool failed) { return failed ? GetLastError() : 0xFFFFFFFF; }
};

TEST_F(FileTest, dispositions_open_create_and_truncate) {
  umask(0);
  EXPECT_EQ(Opened(GENERIC_READ | 1, CREATE_ALWAYS), 2);
  EXPECT_EQ(Opened(kReadWrite, 0), 2);
  EXPECT_EQ(Opened(GENERIC_READ, OPEN_EXISTING), 5);
  EXPECT_EQ(Opened(kReadWrite, TRUNCATE_EXISTING), 5);
  EXPECT_EQ(Opened(GENERIC_READ, OPEN_ALWAYS), -O_RDWR) << "to create it, with any access";
  EXPECT_EQ(Opened(GENERIC_READ, OPEN_ALWAYS), -O_RDONLY);
  struct stat status;
  ASSERT_EQ(stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0660u);
  Store("0123456789");
  EXPECT_EQ(Opened(GENERIC_WRITE, CREATE_ALWAYS), -O_WRONLY);
  EXPECT_EQ(Opened(kReadWrite, TRUNCATE_EXISTING), -O_RDWR);
  EXPECT_EQ(Stored(), "");
}

TEST_F(FileTest, positions_and_sizes_have_32_bits) {
  Store("abcdef");
  HANDLE file = Open(kReadWrite, OPEN_EXISTING);
  EXPECT_EQ(SetFilePointer(file, -4, nullptr, FILE_END), 2u);
  EXPECT_EQ(SetFilePointer(file, 1, nullptr, FILE_CURRENT), 3u);
  char read[8] = {};
  uint32_t done = 0, high = 7;
  EXPECT_EQ(ReadFile(file, read, sizeof(read), &done, nullptr) + done, 4u);
  EXPECT_STREQ(read, "def");
  EXPECT_EQ(WriteFile(file, "g", 1, nullptr, nullptr), 1) << "the count may be null";
  EXPECT_EQ(Stored(), "abcdefg");
  EXPECT_EQ(CodeIf(SetFilePointer(file, -1, nullptr, FILE_BEGIN) == 0xFFFFFFFF), 2u);
  if (truncate(path_.c_str(), (5LL << 30) + 3) == 0) {
    EXPECT_EQ(GetFileSize(file, &high), (1u << 30) + 3);
  }
  CloseHandle(file);
  file = CreateFile("/proc/self/mem", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  EXPECT_EQ(SetFilePointer(file, -65536, nullptr, FILE_BEGIN), 0xFFFF0000) << "a valid position";
  EXPECT_EQ(GetLastError(), OSCL_ERROR_SUCCESS);
  CloseHandle(file);
  EXPECT_EQ(CodeIf(ReadFile(file, read, 1, &high, nullptr) == 0), OSCL_ERROR_UNKNOWN);
  EXPECT_EQ(high, 7u) << "never written";
}

TEST_F(FileTest, whole_files_are_written_extended_and_read) {
  EXPECT_EQ(OSCL_AppendFile(path_.c_str(), "0123", 4), S_OK);
  EXPECT_EQ(OSCL_AppendFile(path_.c_str(), "456789", 6), S_OK);
  EXPECT_EQ(OSCL_WriteFile(path_.c_str(), "abc", 3), S_OK);
  uint32_t size = 0;
  void* content = OSCL_ReadFile(path_.c_str(), nullptr, &size);
  ASSERT_NE(content, nullptr);
  EXPECT_EQ(std::string(static_cast<char*>(content), size), "abc3456789");
  FreeMem(content);
  Store("");
  // The second file is shorter than its size says.
  for (const char* path : {path_.c_str(), "/sys/devices/system/cpu/online"}) {
    if (access(path, R_OK) != 0) continue;
    size = 7;
    EXPECT_EQ(CodeIf(OSCL_ReadFile(path, nullptr, &size) == nullptr), 0u);
    EXPECT_EQ(size, 0u) << path;
  }
}

TEST_F(FileTest, the_version_is_scanned_from_the_system) {
  OSVERSIONINFO info;
  Store("Linux version 4.9.1");
  ASSERT_EQ(GetVersionEx(&info), 1);
  EXPECT_EQ(info.dwMajorVersion * 100 + info.dwMinorVersion, 409u);
  Store("Linux version four");
  std::memset(&info, 1, sizeof(info));
  EXPECT_EQ(CodeIf(GetVersionEx(&info) == 0), OSCL_ERROR_UNKNOWN);
  const OSVERSIONINFO zero = {148, 0, 0, 0, 0, {}};
  EXPECT_EQ(std::memcmp(&info, &zero, 148), 0);
}

TEST_F(FileTest, blocks_of_several_threads_are_counted_exactly) {
  const auto allocate = [] {
    for (int i = 0; i < 1000000; ++i) FreeMem(AllocMem(1));
  };
  std::thread other(allocate);
  allocate();
  other.join();  // the fixture compares the counts
}

}  // namespace
