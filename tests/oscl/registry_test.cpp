// Tests the registry calls on files with known content. fuzz_registry_test tests the parser.

#include "oscl/registry.h"

#include "tests/oscl/registry_fixture.h"

static std::function<void()> beforeRead;  // called once

// This program replaces the function that reads the registry file.
extern "C" size_t fread(void* data, size_t size, size_t count, FILE* file) {
  if (beforeRead) std::exchange(beforeRead, nullptr)();
  static const auto real = reinterpret_cast<decltype(&fread)>(dlsym(RTLD_NEXT, "fread"));
  return real(data, size, count, file);
}

namespace {

using namespace std::string_literals;

// The second key "HKEY_USERS\A" and its values are never found, because the first hides them.
const char kFile[] =
    "[KEY]\n10\nHKEY_USERS\\A\n[VALUE]\ntext\n1\nhello\n[VALUE]\nlast\n4\n-2\n"
    "[KEY]\n11\nHKEY_CURRENT_USER\\A\n[VALUE]\nnumber\n4\n-7\n[VALUE]\nwide\n11\n4294967303\n"
    "[KEY]\n12\nHKEY_USERS\\A\n[VALUE]\nother\n1\nx\n"
    "[KEY]\n13\nHKEY_USERS\\A\\B\n[VALUE]\ntext\n1\nbelow\n"
    "[KEY]\n14\nA\n[VALUE]\ntext\n1\nno root\n[VALUE]\nempty\n1\n";

class RegistryTest : public RegistryFixture {
 protected:
  RegistryTest() { Store(kFile); }

  // Returns the code, which must also be in gLastError, and the id.
  static std::string Open(HKEY key, const char* subKey) {
    HKEY opened = 0;
    const uint32_t code = RegOpenKeyEx(key, subKey, 0, 0, &opened);
    EXPECT_EQ(GetLastError(), code);
    EXPECT_EQ(RegOpenKeyExA(key, subKey, 0, 0, &opened), code);
    return std::to_string(code) + ", " + std::to_string(opened);
  }

  // Returns the code, which must also be in gLastError, and the type and bytes of the value.
  static std::string Get(HKEY key, const char* subKey, const char* name) {
    uint32_t type = 0, size = 0;
    const uint32_t code = RegGetValue(key, subKey, name, 0, &type, nullptr, &size);
    EXPECT_EQ(GetLastError(), code);
    // The address sanitizer detects any access beyond the value.
    std::vector<char> data(size);
    EXPECT_EQ(RegGetValue(key, subKey, name, 0, nullptr, data.data(), nullptr), code);
    return std::to_string(code) + ", " + std::to_string(type) + ", " +
           std::string(data.begin(), data.end());
  }

  // Returns the number of write calls of this process.
  static long Writes() {
    std::ifstream counts("/proc/self/io");
    long count = 0;
    for (std::string name; counts >> name >> count && name != "syscw:";) continue;
    return count;
  }
};

TEST_F(RegistryTest, keys_are_found_by_root_and_name) {
  const std::string longest(244, 'n');
  Store(kFile + "x\n[KEY]\n20\nHKEY_USERS\\"s + longest + "\n[KEY]\n30\nHKEY_USERS\\\n");
  EXPECT_EQ(Open(HKEY_USERS, "A"), "0, 16");
  EXPECT_EQ(Open(0, "A"), "0, 20");
  EXPECT_EQ(Open(99, "HKEY_USERS\\A"), "0, 16") << "not a root";
  for (const HKEY root : {HKEY_CLASSES_ROOT, HKEY_LOCAL_MACHINE})
    EXPECT_EQ(Open(root, "A"), "15, 0");
  EXPECT_EQ(Open(HKEY_USERS, "a"), "15, 0");
  EXPECT_EQ(Open(HKEY_USERS, nullptr), "0, 48");
  EXPECT_EQ(Open(HKEY_USERS, longest.c_str()), "0, 32");
  EXPECT_EQ(Open(HKEY_USERS, (longest + "n").c_str()), "0, 48") << "the sub-key is dropped";
  EXPECT_EQ(RegOpenKeyEx(0, "A", 0, 0, nullptr), OSCL_ERROR_INVALID_PARAMETER);
}

TEST_F(RegistryTest, values_are_read_by_the_name_of_the_key_with_the_id) {
  EXPECT_EQ(Get(0x12, nullptr, "text"), "0, 1, hello\0"s) << "of the first key with the name";
  EXPECT_EQ(Get(0x14, "", "empty"), "0, 1, ");
  EXPECT_EQ(Get(0x11, "", "wide"), "0, 11, \7\0\0\0"s);
  EXPECT_EQ(Get(0x10, "\\B", "text"), "0, 1, below\0"s);
  EXPECT_EQ(Get(99, "A", "text"), "0, 1, no root\0"s);
  EXPECT_EQ(Get(99, "", "text"), "7, 0, ");
  for (const char* name : {"other", "Text", ""}) EXPECT_EQ(Get(0x10, "", name), "8, 0, ") << name;
  EXPECT_EQ(Get(0x10, "", nullptr), "2, 0, ");
  for (HKEY root = HKEY_CLASSES_ROOT; root <= HKEY_USERS; ++root) {
    EXPECT_EQ(Get(root, "A", "text"), "1, 0, ");
    EXPECT_EQ(RegSetValueEx(root, "text", 0, 1, "x", 2), 1u);
  }
  EXPECT_EQ(RegSetValueEx(99, "text", 0, 1, "x", 2), 7u);
  EXPECT_EQ(RegSetValueEx(0x10, std::string(256, 'n').c_str(), 0, 1, "x", 2), 2u);
  EXPECT_EQ(Stored(), kFile);
  const std::string longest(255, 'n');
  EXPECT_EQ(RegSetValueEx(0x10, longest.c_str(), 0, 1, longest.data(), 255), 0u);
}

TEST_F(RegistryTest, a_file_that_does_not_load_takes_precedence) {
  for (const auto& [line, code] : {std::pair("3", "12"), std::pair("1\nx\nextra", "13")}) {
    const std::string file = kFile + "x\n[VALUE]\nv\n"s + line + "\n";
    Store(file);
    EXPECT_EQ(Open(HKEY_USERS, "A"), code + ", 0"s);
    EXPECT_EQ(std::to_string(RegOpenKeyEx(0, "A", 0, 0, nullptr)), code);
    for (const char* name : {"text", static_cast<const char*>(nullptr)}) {
      EXPECT_EQ(Get(0x10, "", name), code + ", 0, "s);
      EXPECT_EQ(std::to_string(RegSetValueEx(99, name, 0, 1, "x", 2)), code);
    }
    EXPECT_EQ(Get(HKEY_USERS, "", "text"), "1, 0, ");
    EXPECT_EQ(Stored(), file);
  }
}

TEST_F(RegistryTest, a_value_that_is_set_replaces_its_data_or_follows_the_others) {
  // A bar stands for a line end and the indentation of the next line.
  const std::string text = "[VALUE]|text|1|hello|", last = "[VALUE]|last|4|-2|";
  for (const auto& [name, type, size, data, values] :
       {std::tuple("text", uint32_t{REG_SZ}, 3u, "new"s, "[VALUE]|text|1|new|" + last),
        {"added", REG_SZ, 4, "a\0b!"s, text + last + "[VALUE]|added|1|a|"},
        {"text", REG_SZ, 3, "", "[VALUE]|text|1||" + last},  // null data
        {"last", REG_QWORD, 8, "", text + "[VALUE]|last|11|0|"},
        {"last", REG_SZ, 0, "", text + "[VALUE]|last|1|"},
        {"", REG_BINARY, 1, "z", text + last + "[VALUE]|3|z|"},
        // Four bytes are written, whatever the size argument is.
        {"last", REG_DWORD, 0, "\xFF\xFF\xFF\xFF", text + "[VALUE]|last|4|-1|"},
        {"last", REG_QWORD, 1, "\x03", text + "[VALUE]|last|11|3|"},
        {"last", REG_QWORD, 8, "\7\0\0\0\1\0\0\0"s, text + "[VALUE]|last|11|7|"},
        {"last", 0xFFFFFFFF, 1, "z", text + "[VALUE]|last|-1|z|"}}) {
    Store(kFile);
    const std::vector<char> exact(data.begin(), data.end());
    EXPECT_EQ(RegSetValueEx(0x12, name, 0, type, data.empty() ? nullptr : exact.data(), size), 0u);
    EXPECT_EQ(StoredLines(),
              "[KEY]|0x00000010|HKEY_USERS\\A|" + values +
                  "[KEY]|0x00000014|A|[VALUE]|text|1|no root|[VALUE]|empty|1|"
                  "[KEY]|0x00000013|HKEY_USERS\\A\\B|[VALUE]|text|1|below|"
                  "[KEY]|0x00000012|HKEY_USERS\\A|[VALUE]|other|1|x|"
                  "[KEY]|0x00000011|HKEY_CURRENT_USER\\A|[VALUE]|number|4|-7|[VALUE]|wide|11|7|");
  }
}

TEST_F(RegistryTest, a_file_that_changes_while_it_is_read_is_read_completely) {
  beforeRead = [this] {
    Store("[KEY]\n1\n");
    beforeRead = [this] { Store(kFile); };
  };
  EXPECT_EQ(Open(0, "A"), "0, 20") << "a file that was cut short is read again";
  beforeRead = [this] { Store("[KEY]\n1\na\n" + std::string(40000, '\n') + "[KEY]\n2\nb\n"); };
  EXPECT_EQ(Open(0, "b"), "0, 2");
#ifndef __SANITIZE_ADDRESS__  // which makes write calls of its own
  // A large file is written by one call, so that a reader sees nothing between.
  std::string large = "[KEY]\n1\na\n";
  for (int i = 0; i < 2000; ++i) large += "[VALUE]\nname\n1\ntext\n";
  Store(large);
  const long before = Writes();
  EXPECT_EQ(RegSetValueEx(1, "name", 0, REG_SZ, "x", 2), 0u);
  if (before != 0) {  // some kernels do not count
    EXPECT_EQ(Writes() - before, 1);
  }
#endif
}

}  // namespace
