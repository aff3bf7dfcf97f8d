// The tool's reader and writer against the library's own.

#include "tools/registry/registry_file.h"

#include "oscl/registry.h"
#include "tests/oscl/registry_fixture.h"

namespace kaloctl {
namespace {

constexpr char kThreeKeys[] =
    "[KEY]\n\t0x00000001\n\tHKEY_USERS\\a\n"
    "\t\t[VALUE]\n\t\t\tLevel\n\t\t\t4\n\t\t\t-5\n"
    "\t\t[VALUE]\n\t\t\tTitle\n\t\t\t1\n\t\t\tends in a blank \n"
    "[KEY]\n\t0x00000002\n\tHKEY_USERS\\b\n"
    "\t\t[VALUE]\n\t\t\tWide\n\t\t\t11\n\t\t\t7\n"
    "[KEY]\n\t0x00000003\n\tHKEY_USERS\\c\n";

class RegistryToolTest : public RegistryFixture {
 protected:
  RegistryToolTest() { Store(kThreeKeys); }

  // What the library says to a look-up in the stored file.
  static uint32_t LibraryOpens(const char* subKey) {
    HKEY key = 0;
    return RegOpenKeyEx(HKEY_USERS, subKey, 0, 0, &key);
  }
};

TEST_F(RegistryToolTest, writes_and_repairs_what_the_library_writes_to_the_byte) {
  RegistryText registry = LoadRegistryFile(path_);
  registry.keys[1].values[0].number = 9;
  const uint32_t nine = 9;
  ASSERT_EQ(RegSetValueEx(2, "Wide", 0, REG_QWORD, &nine, 4), 0u);
  EXPECT_EQ(FormatRegistry(registry, RegistryStyle::kRewritten), Stored());
  ASSERT_EQ(LibraryOpens("a"), 13u);
  EXPECT_THROW(LoadRegistryFile(path_), RegistryError);
  registry = LoadRegistryFileToEdit(path_);
  registry.keys[1].values[0].number = 7;
  WriteRegistryFile(path_, FormatRegistry(registry, RegistryStyle::kLoadable));
  EXPECT_EQ(Stored(), kThreeKeys);
  EXPECT_EQ(LibraryOpens("c"), 0u);
}

TEST_F(RegistryToolTest, refuses_to_repair_what_would_read_differently) {
  ASSERT_EQ(RegSetValueEx(1, "Title", 0, REG_SZ, "", 1), 0u);
  EXPECT_THROW(LoadRegistryFileToEdit(path_), RegistryError);
  Store(kThreeKeys);
  ASSERT_EQ(RegSetValueEx(1, "Title", 0, REG_BINARY, "x", 1), 0u);
  EXPECT_THROW(LoadRegistryFileToEdit(path_), RegistryError);
}

TEST_F(RegistryToolTest, adds_no_data_to_a_value_that_lacks_it) {
  const std::string cut = "[KEY]\n\t0x00000001\n\ta\n\t\t[VALUE]\n\t\t\tx\n\t\t\t4\n";
  EXPECT_EQ(FormatRegistry(ParseRegistry(cut), RegistryStyle::kLoadable), cut);
}

TEST_F(RegistryToolTest, judges_files_as_the_library_does) {
  const std::string key = "[KEY]\n1\nHKEY_USERS\\a\n";
  const std::string cases[] = {"",
                               "\n" + key,
                               key,
                               key + "\n \n\t[VALUE]\nx\n1\ny",
                               key + "[VALUE]\nx\n3\ny\n",
                               key + "[VALUE] \nx\n1\ny\n",
                               key + "[KEY]\n",
                               "[VALUE]\nx\n1\ny\n" + key,
                               "[KEY]\n0xHKEY_USERS\\a\n",
                               "[KEY]\n-0x\n\tHKEY_USERS\\a\n",
                               "[KEY]\n0x1 HKEY_USERS\\a\n",
                               key + "[KEY]\n2\n" + std::string(254, 'n') + "too long\n",
                               key + "[VALUE]\nx\n0x4\n5\n",
                               std::string("[KEY]\0x\n1\nHKEY_USERS\\a\n", 22)};
  for (const std::string& content : cases) {
    Store(content);
    uint32_t tool = 0;
    try {
      if (ParseRegistry(content).FindByName("HKEY_USERS\\a") == nullptr) tool = 15;
    } catch (const RegistryFault& fault) {
      tool = fault.code();
    }
    EXPECT_EQ(tool, LibraryOpens("a")) << content;
  }
}

TEST_F(RegistryToolTest, finds_the_key_that_the_library_finds) {
  const RegistryText registry =
      ParseRegistry("[KEY]\n1\na\n[KEY]\n2\na\n[KEY]\n3\nb\n[KEY]\n3\nc\n");
  EXPECT_EQ(FindRegistryKey(registry, "a"), 0u);
  EXPECT_EQ(FindRegistryKey(registry, "c"), 3u);
  EXPECT_THROW(FindRegistryKey(registry, "b"), RegistryError) << "its id leads to c";
}

}  // namespace
}  // namespace kaloctl
