#include <sys/stat.h>

#include <memory>
#include <tuple>

#include "oscl/registry.h"
#include "tests/oscl/registry_fixture.h"

namespace {

const char kOneKey[] = "[KEY]\n0x11\nHKEY_LOCAL_MACHINE\\Soft\\X\n";

class RegistryTest : public RegistryFixture {};

TEST_F(RegistryTest, keys_are_found_by_exact_full_name) {
  HKEY opened = 0;
  EXPECT_EQ(RegOpenKeyEx(HKEY_USERS, "x", 0, 0, &opened), OSCL_ERROR_REG_FILE_UNREADABLE);
  const std::string longest(244, 'n');
  Store("[KEY]\n0X1ffffffff\nHKEY_USERS\\" + longest + "\n[KEY]\n15 Name\n");
  EXPECT_EQ(RegOpenKeyEx(HKEY_USERS, longest.c_str(), 0, 0, &opened), 0u);
  EXPECT_EQ(opened, 0xFFFFFFFF) << "of 64 bits 32 are kept";
  EXPECT_EQ(RegOpenKeyEx(HKEY_USERS, (longest + "n").c_str(), 0, 0, &opened), 15u);
  EXPECT_EQ(RegOpenKeyEx(0, "Name", 0, 0, &opened), 0u);
  EXPECT_EQ(opened, 0x15u) << "what follows the id is the name";
  EXPECT_EQ(RegOpenKeyEx(HKEY_USERS, "x", 0, 0, nullptr), OSCL_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(RegCloseKey_Linux(0x11) + GetLastError(), 0u);
  // Refused as a whole, so that the key named by the bare prefix is meant.
  Store("[KEY]\n0x16\nHKEY_USERS\\\n");
  EXPECT_EQ(RegOpenKeyEx(HKEY_USERS, (longest + "n").c_str(), 0, 0, &opened), 0u);
  EXPECT_EQ(opened, 0x16u);
}

TEST_F(RegistryTest, data_are_written_by_type_no_further_than_their_size) {
  const std::tuple<uint32_t, std::string, std::string, std::string> cases[] = {
      {REG_DWORD, "\xFF\xFF\xFF\xFF", "4 \n\t\t\t-1 \n", "\xFF\xFF\xFF\xFF"},
      {REG_QWORD, "\x03", "11 \n\t\t\t3 \n", std::string("\x03\0\0\0", 4)},
      {REG_SZ, "not terminated", "1 \n\t\t\tnot terminated \n", std::string("not terminated", 15)},
      {0xFFFFFFFF, "z", "-1 \n\t\t\tz \n", ""},
  };
  const std::string head =
      "[KEY] \n\t0x00000011 \n\tHKEY_LOCAL_MACHINE\\Soft\\X \n\t\t[VALUE] \n\t\t\tv \n\t\t\t";
  for (const auto& [type, data, lines, read] : cases) {
    Store(kOneKey);
    const std::unique_ptr<char[]> exact(new char[data.size()]);
    data.copy(exact.get(), data.size());
    const auto dataSize = type == REG_DWORD ? 0 : static_cast<uint32_t>(data.size());
    EXPECT_EQ(RegSetValueEx(0x11, "v", 0, type, exact.get(), dataSize), 0u);
    std::string stored = Stored();
    EXPECT_EQ(stored, head + lines);
    for (std::size_t at; (at = stored.find(" \n")) != std::string::npos;) stored.erase(at, 1);
    Store(stored);
    char reread[32];
    uint32_t size = 0;
    RegQueryValueExA(0x11, "v", nullptr, nullptr, reread, &size);
    EXPECT_EQ(std::string(reread, size), read);
  }
  Store(kOneKey);
  EXPECT_EQ(RegSetValueEx(0x11, std::string(256, 'n').c_str(), 0, 1, "x", 2), 2u);
  EXPECT_EQ(Stored(), kOneKey);
}

TEST_F(RegistryTest, a_file_that_cannot_be_written_is_code_10) {
  Store(kOneKey);
  chmod(path_.c_str(), 0444);
  const bool root = geteuid() == 0;
  ASSERT_TRUE(!root || seteuid(65534) == 0);
  EXPECT_EQ(RegSetValueEx(0x11, "v", 0, 1, "x", 2), OSCL_ERROR_REG_FILE_UNWRITABLE);
  ASSERT_TRUE(!root || seteuid(0) == 0);
  EXPECT_EQ(Stored(), kOneKey);
}

}  // namespace
