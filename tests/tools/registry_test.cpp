// The tool's reader and writer against the library's own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "oscl/registry.h"
#include "simulator/attachment.h"
#include "tools/registry_file.h"

namespace kaloctl {
namespace {

using testing::HasSubstr;

constexpr char kThreeKeys[] =
    "[KEY]\n\t0x00000001\n\tHKEY_USERS\\a\n"
    "\t\t[VALUE]\n\t\t\tLevel\n\t\t\t4\n\t\t\t-5\n"
    "\t\t[VALUE]\n\t\t\tTitle\n\t\t\t1\n\t\t\tends in a blank \n"
    "[KEY]\n\t0x00000002\n\tHKEY_USERS\\b\n"
    "\t\t[VALUE]\n\t\t\tWide\n\t\t\t11\n\t\t\t7\n"
    "[KEY]\n\t0x00000003\n\tHKEY_USERS\\c\n";

class RegistryToolTest : public testing::Test {
 protected:
  RegistryToolTest() { Store(kThreeKeys); }
  ~RegistryToolTest() override { std::filesystem::remove_all(folder); }

  void Store(const std::string& content) { std::ofstream(path) << content; }

  std::string Stored() {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  // What the library says to a look-up in the stored file.
  uint32_t LibraryOpens(const char* subKey) {
    HKEY key = 0;
    return RegOpenKeyEx(HKEY_USERS, subKey, 0, 0, &key);
  }

  static std::string MakeFolder() {
    char name[] = "/tmp/registry_test.XXXXXX";
    return mkdtemp(name);
  }

  const std::string folder = MakeFolder();
  const std::string path = folder + "/registry.txt";
  zulisim::Engine engine;
  zulisim::Attachment attachment{engine, {{kRegistryPath, path}}};
};

TEST_F(RegistryToolTest, writes_what_the_library_writes) {
  RegistryText registry = LoadRegistryFile(path);
  registry.keys[1].values[0].number = 9;
  const uint32_t nine = 9;
  ASSERT_EQ(RegSetValueEx(2, "Wide", 0, REG_QWORD, &nine, 4), 0u);
  EXPECT_EQ(FormatRegistry(registry, RegistryStyle::kRewritten), Stored());
}

TEST_F(RegistryToolTest, repairs_what_the_library_wrote_to_the_byte) {
  const int32_t level = -5;
  ASSERT_EQ(RegSetValueEx(1, "Level", 0, REG_DWORD, &level, 4), 0u);
  ASSERT_EQ(LibraryOpens("a"), 13u);
  EXPECT_THROW(LoadRegistryFile(path), RegistryError);
  WriteRegistryFile(path, FormatRegistry(LoadRegistryFileToEdit(path), RegistryStyle::kLoadable));
  EXPECT_EQ(Stored(), kThreeKeys);
  EXPECT_EQ(LibraryOpens("c"), 0u);
}

TEST_F(RegistryToolTest, refuses_to_repair_what_would_read_differently) {
  ASSERT_EQ(RegSetValueEx(1, "Title", 0, REG_SZ, "", 1), 0u);
  EXPECT_THROW(LoadRegistryFileToEdit(path), RegistryError);
  Store(kThreeKeys);
  ASSERT_EQ(RegSetValueEx(1, "Title", 0, REG_BINARY, "x", 1), 0u);
  EXPECT_THROW(LoadRegistryFileToEdit(path), RegistryError);
}

TEST_F(RegistryToolTest, judges_files_as_the_library_does) {
  const std::string key = "[KEY]\n1\nHKEY_USERS\\a\n";
  const std::string longName(254, 'n');
  const std::string cases[] = {"",
                               "\n" + key,
                               " " + key,
                               key,
                               key + "\n \n\t[VALUE]\nx\n1\ny",
                               key + "[VALUE]\nx\n3\ny\n",
                               key + "[VALUE]\nx\n4",
                               key + "[VALUE]\nx\n",
                               key + "[VALUE] \nx\n1\ny\n",
                               key + "[KEY]\n",
                               "[VALUE]\nx\n1\ny\n" + key,
                               "[KEY]\nzz\nHKEY_USERS\\a\n",
                               "[KEY]\n0x1 HKEY_USERS\\a\n",
                               key + "[KEY]\n2\n" + longName + "too long\n",
                               key + "junk\n",
                               key + "[VALUE]\nx\n0x4\n5\n",
                               "[KEY]\r\n1\nHKEY_USERS\\a\n",
                               std::string("[KEY]\0x\n1\nHKEY_USERS\\a\n", 22)};
  for (const std::string& content : cases) {
    Store(content);
    const uint32_t library = LibraryOpens("a");
    uint32_t tool = 0;
    try {
      if (ParseRegistry(content).FindByName("HKEY_USERS\\a") == nullptr) tool = 15;
    } catch (const RegistryFault& fault) {
      tool = fault.code();
    }
    EXPECT_EQ(tool, library) << content;
  }
}

TEST_F(RegistryToolTest, names_the_line_that_is_wrong) {
  Store("[KEY]\n1\nHKEY_USERS\\a\n\n\n  [VALUE]\n  x\n  3\n  y\n");
  try {
    LoadRegistryFile(path);
    FAIL();
  } catch (const RegistryError& error) {
    EXPECT_THAT(error.what(), HasSubstr("line 8: type '3' of value 'x'"));
    EXPECT_THAT(error.what(), HasSubstr("code 12"));
  }
}

TEST_F(RegistryToolTest, finds_the_key_that_the_library_finds) {
  const RegistryText registry = ParseRegistry(
      "[KEY]\n1\nHKEY_USERS\\a\n[KEY]\n2\nHKEY_USERS\\a\n[KEY]\n3\nHKEY_USERS\\b\n"
      "[KEY]\n3\nHKEY_USERS\\c\n");
  EXPECT_EQ(FindRegistryKey(registry, "HKEY_USERS\\a"), 0u);
  EXPECT_EQ(FindRegistryKey(registry, "HKEY_USERS\\c"), 3u);
  EXPECT_THROW(FindRegistryKey(registry, "HKEY_USERS\\b"), RegistryError) << "its id leads to c";
  EXPECT_THROW(FindRegistryKey(registry, "HKEY_USERS\\A"), RegistryError);
}

}  // namespace
}  // namespace kaloctl
