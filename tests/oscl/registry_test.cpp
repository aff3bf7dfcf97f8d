#include <gmock/gmock.h>
#include <sys/stat.h>

#include <memory>
#include <thread>
#include <tuple>

#include "oscl/registry.h"
#include "tests/oscl/registry_fixture.h"

namespace {

class RegistryTest : public RegistryFixture {
 protected:
  static uint32_t Open(HKEY key, const std::string& subKey) {
    HKEY opened = 0;
    EXPECT_EQ(RegOpenKeyEx(key, subKey.c_str(), 0, 0, &opened), 0u) << subKey;
    return opened;
  }
};

TEST_F(RegistryTest, wrong_arguments_and_an_unwritable_file_are_refused) {
  Store("[KEY]\n1\nName\n");
  EXPECT_EQ(RegOpenKeyEx(0, "Name", 0, 0, nullptr), OSCL_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(RegSetValueEx(1, std::string(256, 'n').c_str(), 0, 1, "x", 2), 2u);
  chmod(path_.c_str(), 0444);
  const bool root = geteuid() == 0;
  if (root && seteuid(65534) != 0) GTEST_SKIP() << "cannot switch to another user";
  EXPECT_EQ(RegSetValueEx(1, "v", 0, 1, "x", 2), OSCL_ERROR_REG_FILE_UNWRITABLE);
  ASSERT_TRUE(!root || seteuid(0) == 0);
  EXPECT_EQ(Stored(), "[KEY]\n1\nName\n");
}

TEST_F(RegistryTest, numbers_are_written_from_all_given_bytes) {
  const std::tuple<uint32_t, uint32_t, std::string, const char*> cases[] = {
      // Four bytes are written, whatever the size argument is.
      {REG_DWORD, 0, "\xFF\xFF\xFF\xFF", "\t4 \n\t\t\t-1 \n"},
      {REG_QWORD, 1, "\x03", "\t11 \n\t\t\t3 \n"},
      {0xFFFFFFFF, 1, "z", "\t-1 \n\t\t\tz \n"}};
  for (const auto& [type, size, data, lines] : cases) {
    Store("[KEY]\n1\nName\n");
    const std::unique_ptr<char[]> exact(new char[data.size()]);
    data.copy(exact.get(), data.size());
    EXPECT_EQ(RegSetValueEx(1, "v", 0, type, exact.get(), size), 0u);
    EXPECT_THAT(Stored(), testing::EndsWith(lines));
  }
}

TEST_F(RegistryTest, a_sub_key_that_is_too_long_is_dropped_completely) {
  const std::string longest(244, 'n');
  Store("[KEY]\n1\nHKEY_USERS\\" + longest + "\n[KEY]\n2\nHKEY_USERS\\\n");
  EXPECT_EQ(Open(HKEY_USERS, longest), 1u);
  EXPECT_EQ(Open(HKEY_USERS, longest + "n"), 2u);
}

TEST_F(RegistryTest, a_file_without_a_size_is_read_completely) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  std::thread writer(
      [this] { Store("[KEY]\n1\na\n" + std::string(40000, '\n') + "[KEY]\n2\nb\n"); });
  EXPECT_EQ(Open(0, "b"), 2u);
  writer.join();
}

}  // namespace
