// Compares how kaloctl and the library read a registry file.

#include "oscl/registry.h"
#include "tests/oscl/registry_fixture.h"
#include "tools/registry/registry_file.h"

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

  // Returns the library's result for a look-up in the stored file.
  static uint32_t LibraryOpens(const char* subKey) {
    HKEY key = 0;
    return RegOpenKeyEx(HKEY_USERS, subKey, 0, 0, &key);
  }
};

TEST_F(RegistryToolTest, repairs_what_the_library_writes_to_the_byte) {
  const uint32_t seven = 7;
  ASSERT_EQ(RegSetValueEx(2, "Wide", 0, REG_QWORD, &seven, 4), 0u);
  ASSERT_EQ(LibraryOpens("a"), 13u);
  EXPECT_THROW(LoadRegistryFile(path_), RegistryError);
  const RegistryText repaired = RepairRegistry(Stored());
  EXPECT_TRUE(repaired.doubtful) << "a text is followed by keys";
  WriteRegistryFile(path_, FormatRegistry(repaired));
  EXPECT_EQ(Stored(), kThreeKeys);
  EXPECT_EQ(LibraryOpens("c"), 0u);
}

TEST_F(RegistryToolTest, does_not_repair_what_would_read_differently) {
  ASSERT_EQ(RegSetValueEx(1, "Title", 0, REG_SZ, "", 1), 0u);
  EXPECT_TRUE(RepairRegistry(Stored()).stop);
  Store("[KEY]\n1\na\n[VALUE]\nTitle\n1\nx\n");
  ASSERT_EQ(RegSetValueEx(1, "Title", 0, REG_SZ, "", 1), 0u);
  EXPECT_TRUE(RepairRegistry(Stored()).doubtful);
  const std::string nul =
      "[KEY] \n\t1 \n\ta \n\t\t[VALUE] \n\t" + std::string(1, '\0') + " \n\t4 \n\t5 \n";
  EXPECT_TRUE(RepairRegistry(nul).doubtful) << "a value with an empty name does not load again";
  Store(kThreeKeys);
  ASSERT_EQ(RegSetValueEx(1, "Title", 0, REG_BINARY, "x", 1), 0u);
  EXPECT_EQ(RepairRegistry(Stored()).stop->code, 12u);
}

TEST_F(RegistryToolTest, adds_no_data_to_a_value_that_lacks_it) {
  const std::string cut = "[KEY]\n\t0x00000001\n\ta\n\t\t[VALUE]\n\t\t\tx\n\t\t\t4\n";
  EXPECT_EQ(FormatRegistry(ParseRegistry(cut)), cut);
}

TEST(RegistryStopTest, names_the_line_at_which_the_library_stops) {
  const std::string key = "[KEY]\n1\nHKEY_USERS\\a\n";
  const struct {
    std::string content;
    std::size_t line;  // 0 if the library reads the whole file
    uint32_t code;
  } cases[] = {{"", 0, 0},
               {key, 0, 0},
               {"\n" + key, 1, 0},
               {" \n" + key, 1, 13},
               {key + "\n \n\t[VALUE]\nx\n1\ny", 0, 0},
               {key + "[VALUE]\n", 0, 0},
               {key + "[VALUE]\nx\n3\ny\n", 6, 12},
               {key + "[VALUE] \nx\n1\ny\n", 4, 13},
               {key + "[KEY]", 0, 0},
               {"[VALUE]\nx\n1\ny\n" + key, 1, 0},
               {key + "[KEY]\nzz\n" + key, 5, 0},
               {"[KEY]\n0x\n\nHKEY_USERS\\a\n", 0, 0},
               {key + "[KEY]\n2\n" + std::string(254, 'n') + "too long\n", 6, 13}};
  for (const auto& each : cases) {
    const auto stop = ParseRegistry(each.content).stop;
    EXPECT_EQ(stop ? stop->line : 0, each.line) << each.content;
    EXPECT_EQ(stop ? stop->code : 0, each.code) << each.content;
  }
}

}  // namespace
}  // namespace kaloctl
