#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <cstring>
#include <memory>
#include <vector>

#include "oscl/last_error.h"
#include "oscl/registry.h"
#include "tests/oscl/registry_fixture.h"

namespace {

const char kOneKey[] = "[KEY]\n0x11\nHKEY_LOCAL_MACHINE\\Soft\\X\n";

class RegistryTest : public RegistryFixture {
 protected:
  // The code of opening a key, which must be in gLastError too.
  uint32_t CodeOfOpening(HKEY root, const char* subKey) {
    const uint32_t code = RegOpenKeyEx(root, subKey, 0, 0, &opened_);
    EXPECT_EQ(GetLastError(), code);
    return code;
  }

  // Reads into an exactly sized block; "code: N" for a failure, else "type:data".
  static std::string Read(HKEY key, const char* name, const char* subKey = nullptr) {
    uint32_t size = 77;
    uint32_t code = RegGetValue(key, subKey, name, 0, nullptr, nullptr, &size);
    EXPECT_EQ(GetLastError(), code);
    if (code != 0) return "code: " + std::to_string(code);
    const std::unique_ptr<char[]> data(new char[size]);
    uint32_t type = 0;
    size = 0;
    code = RegGetValue(key, subKey, name, 0, &type, data.get(), &size);
    EXPECT_EQ(code, 0u);
    return std::to_string(type) + ":" + std::string(data.get(), size);
  }

  std::string ReadFrom(const std::string& file, const char* name = "v") {
    Store(file);
    return Read(0x11, name);
  }

  static std::string Number(uint32_t type, int32_t number) {
    char bytes[sizeof(number)];
    std::memcpy(bytes, &number, sizeof(number));
    return std::to_string(type) + ":" + std::string(bytes, sizeof(bytes));
  }

  static std::string Text(const std::string& text) { return "1:" + text + '\0'; }

  static std::string WithoutTrailingBlanks(std::string text) {
    for (std::size_t at = 0; (at = text.find(" \n", at)) != std::string::npos;) text.erase(at, 1);
    return text;
  }

  HKEY opened_ = 0;
};

TEST_F(RegistryTest, keys_are_found_by_exact_full_name) {
  EXPECT_EQ(CodeOfOpening(HKEY_LOCAL_MACHINE, "Soft\\X"), OSCL_ERROR_REG_FILE_UNREADABLE);
  Store("");
  EXPECT_EQ(CodeOfOpening(HKEY_LOCAL_MACHINE, "Soft\\X"), OSCL_ERROR_REG_ID_NOT_FOUND);
  const std::string longest = "HKEY_USERS\\" + std::string(244, 'n');
  Store(std::string(kOneKey) + "[KEY]\n12\nHKEY_USERS\\ends in a blank \n[KEY]\n0X13\n" + longest +
        "\n[KEY]\n14\nBare\n[KEY]\n15\nHKEY_CLASSES_ROOT\\\n");
  EXPECT_EQ(CodeOfOpening(HKEY_LOCAL_MACHINE, "Soft\\X"), 0u);
  EXPECT_EQ(opened_, 0x11u);
  EXPECT_EQ(RegOpenKeyExA(HKEY_USERS, "ends in a blank ", 0, 0, &opened_), 0u);
  EXPECT_EQ(opened_, 0x12u);
  EXPECT_EQ(CodeOfOpening(HKEY_USERS, longest.c_str() + 11), 0u);
  EXPECT_EQ(opened_, 0x13u);
  EXPECT_EQ(CodeOfOpening(77, "Bare"), 0u);
  EXPECT_EQ(opened_, 0x14u);
  EXPECT_EQ(CodeOfOpening(HKEY_CLASSES_ROOT, nullptr), 0u);
  EXPECT_EQ(opened_, 0x15u);
  for (const char* other : {"Soft\\x", "Soft\\X ", "ends in a blank", ""}) {
    EXPECT_EQ(CodeOfOpening(HKEY_LOCAL_MACHINE, other), OSCL_ERROR_REG_ID_NOT_FOUND) << other;
  }
  EXPECT_EQ(CodeOfOpening(HKEY_USERS, (longest.substr(11) + "n").c_str()),
            OSCL_ERROR_REG_ID_NOT_FOUND);
  EXPECT_EQ(CodeOfOpening(HKEY_CLASSES_ROOT, std::string(300, 'n').c_str()),
            OSCL_ERROR_REG_ID_NOT_FOUND);
  EXPECT_EQ(opened_, 0x15u) << "a failure stores nothing";
  EXPECT_EQ(RegOpenKeyEx(HKEY_USERS, "x", 0, 0, nullptr), OSCL_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(RegCloseKey_Linux(0x11), 0u);
  EXPECT_EQ(GetLastError(), 0u);
}

TEST_F(RegistryTest, lines_are_read_as_scanf_reads_them) {
  const std::string key = kOneKey;
  EXPECT_EQ(ReadFrom(key + "\n\n \t[VALUE]\n\v\f v\n\r\n1\n \ttwo  words \n\n"),
            Text("two  words "));
  EXPECT_EQ(ReadFrom(key + "[VALUE]\nv\n1\nno line end"), Text("no line end"));
  EXPECT_EQ(ReadFrom(key + "[VALUE]\nv\n1\n[KEY]\n"), Text("[KEY]")) << "marks are data in place";
  EXPECT_EQ(ReadFrom(key + "[VALUE]\n[VALUE]\n1\nx\n", "[VALUE]"), Text("x"));
  EXPECT_EQ(ReadFrom(key + "[VALUE]\nv\n1\n" + std::string(255, 'x')), Text(std::string(255, 'x')));
  const std::string cut = std::string(254, 'x') + "y";
  EXPECT_EQ(ReadFrom(key + "[VALUE]\nv\n1\n" + cut + " \t[VALUE]\nw\n1\nz", "w"), Text("z"))
      << "the rest of an over-long line is the next line, without its leading blanks";
  EXPECT_EQ(ReadFrom(key + "[VALUE]\n" + cut + "\n1\nz\n", cut.c_str()), Text("z"));
  EXPECT_EQ(ReadFrom(key + std::string("[VALUE]\0x\nv\0\n1\nab\0c\n", 20)), Text("ab"));
}

TEST_F(RegistryTest, numbers_are_hexadecimal_ids_and_decimal_data_in_4_bytes) {
  const auto dataLine = [](const char* line) {
    return std::string(kOneKey) + "[VALUE]\nv\n11\n" + line + "\n";
  };
  EXPECT_EQ(ReadFrom(dataLine("4294967296")), Number(11, 0));
  EXPECT_EQ(ReadFrom(dataLine("3000000000")), Number(11, -1294967296));
  EXPECT_EQ(ReadFrom(dataLine("99999999999999999999")), Number(11, -1));
  EXPECT_EQ(ReadFrom(dataLine("-5 apples")), Number(11, -5));
  EXPECT_EQ(ReadFrom(dataLine("0x10")), Number(11, 0));
  EXPECT_EQ(ReadFrom(dataLine("ten")), Number(11, 0));
  EXPECT_EQ(ReadFrom(std::string(kOneKey) + "[VALUE]\nv\n 4th\n010\n"), Number(4, 10));
  Store("[KEY]\nffffffffE Name\n");
  EXPECT_EQ(CodeOfOpening(0, "Name"), 0u);
  EXPECT_EQ(opened_, 0xFFFFFFFEu) << "64 bits are scanned, 32 are kept, the rest is the name";
}

TEST_F(RegistryTest, a_file_that_ends_early_is_read_as_far_as_it_goes) {
  const std::string key = kOneKey;
  EXPECT_EQ(ReadFrom(key + "[VALUE]\nv\n1\nx\n[VALUE]"), Text("x"));
  EXPECT_EQ(ReadFrom(key + "[VALUE]\nv\n1\nx\n[VALUE]\nw\n", "w"), "code: 8") << "no type";
  EXPECT_EQ(ReadFrom(key + "[VALUE]\nv\n4\n"), "4:") << "no data line: size 0 and no data";
  EXPECT_EQ(ReadFrom(key + "[VALUE]\nv\n7\n"), "code: 12") << "the type is judged first";
  EXPECT_EQ(ReadFrom(key + "[VALUE]\nv\n1\nx\n[KEY]\nno id\nignored"), Text("x"));
  EXPECT_EQ(ReadFrom(key + "[VALUE]\nv\n1\nx\n[KEY]\n11\n"), Text("x"));
  EXPECT_EQ(ReadFrom("[VALUE]\nnonsense\n" + key), "code: 7") << "a value before any key";
  EXPECT_EQ(ReadFrom("\n" + key), "code: 7") << "a blank line at the top ends the file";
  EXPECT_EQ(ReadFrom(" " + key), "code: 13") << "blanks at the top belong to the line";
}

TEST_F(RegistryTest, what_does_not_belong_into_the_file_fails_every_call) {
  const std::string key = kOneKey;
  const struct {
    std::string file;
    uint32_t code;
  } cases[] = {{key + "[VALUE]\nv\n3\n00\n", 12}, {key + "[VALUE]\nv\nREG_SZ\nx\n", 12},
               {key + "[KEY] \n12\nName\n", 13},  {key + "[value]\n", 13},
               {"[KEY]\r\n11\r\nName\r\n", 13},   {"[KEY]\n11zz\n" + key + "x\n", 13},
               {std::string("\0", 1) + key, 13}};
  for (const auto& [file, code] : cases) {
    SCOPED_TRACE(file);
    Store(file);
    EXPECT_EQ(CodeOfOpening(HKEY_LOCAL_MACHINE, "Soft\\X"), code);
    EXPECT_EQ(RegGetValue(0x11, nullptr, nullptr, 0, nullptr, nullptr, nullptr), code);
    EXPECT_EQ(RegSetValueEx(0x11, nullptr, 0, 1, "x", 2), code);
    EXPECT_EQ(RegGetValue(HKEY_USERS, nullptr, "v", 0, nullptr, nullptr, nullptr), 1u);
    EXPECT_EQ(RegSetValueEx(HKEY_CLASSES_ROOT, "v", 0, 1, "x", 2), 1u);
    EXPECT_EQ(GetLastError(), 1u);
    EXPECT_EQ(Stored(), file);
  }
}

TEST_F(RegistryTest, an_id_finds_a_name_and_the_name_a_key) {
  const auto key = [](const char* id, const char* name, const char* data) {
    return std::string("[KEY]\n") + id + "\n" + name + "\n[VALUE]\nv\n1\n" + data + "\n";
  };
  // In the list: first, 4th, 3rd, 2nd.
  Store(key("1", "First", "a") + key("2", "Twice", "b") + key("3", "Other", "c") +
        key("4", "Twice", "d"));
  EXPECT_EQ(Read(1, "v"), Text("a"));
  EXPECT_EQ(Read(2, "v"), Text("d")) << "the later key of that name comes first";
  EXPECT_EQ(CodeOfOpening(0, "Twice"), 0u);
  EXPECT_EQ(opened_, 4u);
  Store(key("1", "First", "a") + key("1", "Second", "b") + key("2", "A", "x") + key("2", "B", "y"));
  EXPECT_EQ(Read(1, "v"), Text("a"));
  EXPECT_EQ(Read(2, "v"), Text("y"));
  EXPECT_EQ(Read(1, "v", "\\Sub"), "code: 7");
  EXPECT_EQ(Read(9, "v", "Second"), Text("b")) << "no such id: the sub-key alone is the path";
  EXPECT_EQ(Read(9, "v"), "code: 7");
  EXPECT_EQ(Read(9, nullptr), "code: 2") << "judged after the first load, before the look-up";
  EXPECT_EQ(Read(1, "w"), "code: 8");
  EXPECT_EQ(RegSetValueEx(9, "v", 0, 1, "x", 2), 7u);
  uint32_t type = 0;
  uint32_t size = 1;  // never consulted
  char data[2];
  EXPECT_EQ(RegQueryValueExA(2, "v", nullptr, &type, data, &size), 0u);
  EXPECT_EQ(type, uint32_t{REG_SZ});
  EXPECT_EQ(size, 2u);
  EXPECT_STREQ(data, "y");
}

TEST_F(RegistryTest, more_than_32_values_in_a_key_are_read) {
  std::string file = kOneKey;
  for (int i = 0; i < 1000; ++i) {
    file += "[VALUE]\nv" + std::to_string(i) + "\n4\n" + std::to_string(i) + "\n";
  }
  Store(file);
  for (const int i : {0, 31, 32, 33, 999}) {
    EXPECT_EQ(Read(0x11, ("v" + std::to_string(i)).c_str()), Number(4, i));
  }
}

TEST_F(RegistryTest, setting_rewrites_the_file_in_list_order_and_makes_it_unreadable) {
  Store("[KEY]\nA\nFirst\n[VALUE]\nn\n11\n-2\n[KEY]\nB\nSecond\n[KEY]\n0C\nThird\n[VALUE]\nt\n4\n");
  EXPECT_EQ(RegSetValueEx(0xB, "new", 0, REG_SZ, "text", 5), 0u);
  EXPECT_EQ(GetLastError(), 0u);
  const std::string rewritten =
      "[KEY] \n\t0x0000000a \n\tFirst \n\t\t[VALUE] \n\t\t\tn \n\t\t\t11 \n\t\t\t-2 \n"
      "[KEY] \n\t0x0000000c \n\tThird \n\t\t[VALUE] \n\t\t\tt \n\t\t\t4 \n"
      "[KEY] \n\t0x0000000b \n\tSecond \n\t\t[VALUE] \n\t\t\tnew \n\t\t\t1 \n\t\t\ttext \n";
  EXPECT_EQ(Stored(), rewritten);
  EXPECT_EQ(Read(0xB, "new"), "code: 13");
  EXPECT_EQ(RegSetValueEx(0xB, "new", 0, REG_SZ, "x", 2), 13u);
  EXPECT_EQ(Stored(), rewritten);
}

TEST_F(RegistryTest, data_are_written_by_type_and_no_further_than_their_size) {
  const struct {
    uint32_t type;
    std::string data;
    std::string lines;
  } cases[] = {
      {REG_DWORD, std::string("\xFF\xFF\xFF\xFF\x01", 5), "4 \n\t\t\t-1 \n"},
      {REG_DWORD, "\x02", "4 \n\t\t\t2 \n"},
      {REG_QWORD, std::string("\1\0\0\0\1\0\0\0", 8), "11 \n\t\t\t1 \n"},
      {REG_QWORD, "\x03", "11 \n\t\t\t3 \n"},
      {REG_SZ, "not terminated", "1 \n\t\t\tnot terminated \n"},
      {REG_MULTI_SZ, std::string("a\0b\0", 5), "7 \n\t\t\ta \n"},
      {REG_SZ, std::string("\0", 1), "1 \n\t\t\t \n"},
      {0xFFFFFFFF, "z", "-1 \n\t\t\tz \n"},
      {REG_NONE, "", "0 \n"},
  };
  const std::string head = "[KEY] \n\t0x00000011 \n\tHKEY_LOCAL_MACHINE\\Soft\\X \n\t\t[VALUE] \n";
  for (const auto& [type, data, lines] : cases) {
    Store(kOneKey);
    const std::vector<char> exact(data.begin(), data.end());
    EXPECT_EQ(RegSetValueEx(0x11, "v", 0, type, exact.data(), static_cast<uint32_t>(exact.size())),
              0u);
    EXPECT_EQ(Stored(), head + "\t\t\tv \n\t\t\t" + lines);
  }
  Store(kOneKey);
  EXPECT_EQ(RegSetValueEx(0x11, "", 0, REG_DWORD, nullptr, 4), 0u);
  EXPECT_EQ(Stored(), head + "\t\t\t4 \n\t\t\t0 \n") << "an empty name has no line";
  Store(kOneKey);
  EXPECT_EQ(RegSetValueEx(0x11, std::string(256, 'n').c_str(), 0, 1, "x", 2), 2u);
  EXPECT_EQ(Stored(), kOneKey);
}

TEST_F(RegistryTest, values_come_back_once_the_trailing_blanks_are_gone) {
  Store(std::string(kOneKey) + "[KEY]\n2\nB\n[KEY]\n3\nC\n");
  const std::string longest(255, 'x');
  EXPECT_EQ(RegSetValueEx(2, longest.c_str(), 0, REG_SZ, longest.c_str(), 256), 0u);
  Store(WithoutTrailingBlanks(Stored()));
  EXPECT_EQ(RegSetValueEx(2, longest.c_str(), 0, REG_QWORD, "\xFE\xFF\xFF\xFF\0\0\0", 8), 0u);
  Store(WithoutTrailingBlanks(Stored()));
  EXPECT_EQ(RegSetValueEx(3, "s", 0, REG_SZ, "a b", 4), 0u);
  Store(WithoutTrailingBlanks(Stored()));
  EXPECT_EQ(Read(2, longest.c_str()), Number(11, -2));
  EXPECT_EQ(Read(3, "s"), Text("a b"));
}

TEST_F(RegistryTest, a_file_that_cannot_be_written_is_code_10) {
  Store(kOneKey);
  chmod(path_.c_str(), 0444);
  const bool root = geteuid() == 0;
  ASSERT_TRUE(!root || seteuid(65534) == 0);
  EXPECT_EQ(RegSetValueEx(0x11, "v", 0, 1, "x", 2), OSCL_ERROR_REG_FILE_UNWRITABLE);
  ASSERT_TRUE(!root || seteuid(0) == 0);
  EXPECT_EQ(Stored(), kOneKey);
  chmod(path_.c_str(), 0644);
  // A disk that is full part-way: what was not stored must not be reported as done.
  std::signal(SIGXFSZ, SIG_IGN);
  const struct rlimit tight = {10, RLIM_INFINITY};
  setrlimit(RLIMIT_FSIZE, &tight);
  EXPECT_EQ(RegSetValueEx(0x11, "v", 0, 1, "x", 2), OSCL_ERROR_REG_FILE_UNWRITABLE);
  EXPECT_EQ(GetLastError(), OSCL_ERROR_REG_FILE_UNWRITABLE);
  const struct rlimit open = {RLIM_INFINITY, RLIM_INFINITY};
  setrlimit(RLIMIT_FSIZE, &open);
}

}  // namespace
