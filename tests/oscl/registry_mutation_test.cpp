#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>
#include <stdexcept>

#include "tests/oscl/registry_check.h"
#include "tests/oscl/registry_fixture.h"

namespace {

// Lines that are inserted at wrong places.
std::vector<std::string> MisplacedLines() {
  using namespace std::string_literals;
  std::istringstream text(
      "| |[KEY]|[VALUE]|[KEY] |[VALUE]\r|0x|-1|3|1\0x|\0|\0 v|99999999999999999999|"
      "-99999999999999999999|9223372036854775808|+5|+-5|-0X1|+0xg|\v\f|0x1 trailing|%s%n|\xFF\xA0"s);
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line, '|');) lines.push_back(line);
  return lines;
}

// Generates almost valid files. The number of a file determines its content.
class Mutator {
 public:
  explicit Mutator(uint32_t number) : random_(number * 2654435761u + 1) {}

  uint32_t Below(std::size_t limit) { return static_cast<uint32_t>(random_() % limit); }

  std::string File() {
    for (uint32_t count = 1 + Below(4); count != 0; --count) AddKey();
    for (uint32_t count = Below(3); count != 0; --count) MutateLine();
    std::string file;
    for (const std::string& line : lines_) file += line + '\n';
    const uint32_t at = Below(file.size());
    if (Below(4) == 0) file.replace(at, 1, Below(2), static_cast<char>(Below(256)));
    if (Below(8) == 0) file.resize(at + 1);
    return file;
  }

 private:
  using Choices = std::vector<std::string>;

  const std::string& OneOf(const Choices& choices) { return choices[Below(choices.size())]; }

  // Returns one of the choices, or a line about as long as the reader's limit.
  std::string OneOfOrLong(const Choices& choices) {
    if (Below(25) != 0) return OneOf(choices);
    const std::size_t length = Below(3) == 0 ? 127 : 253 + Below(4);
    return std::string(length, "x5 "[Below(3)]) + OneOf({"", " [VALUE]"});
  }

  void AddKey() {
    const std::string id = OneOf({"1", "0x2", "0x80000001", "fFfFfFfF", "0"});
    const std::string name = OneOfOrLong({"HKEY_CURRENT_USER\\A", "HKEY_LOCAL_MACHINE\\B",
                                          "HKEY_USERS\\a", "HKEY_CLASSES_ROOT\\", "C"});
    lines_.insert(lines_.end(), {"[KEY]", "\t" + id, "\t" + name});
    for (uint32_t count = Below(50) == 0 ? 40 : Below(4); count != 0; --count) {
      const std::string value = OneOfOrLong({"v", "w", "[VALUE]"});
      const std::string data =
          OneOfOrLong({"7", "-1", "4294967296", "16843009", "text", "a b ", "[KEY]"});
      lines_.insert(lines_.end(), {"\t\t[VALUE]", value, OneOf({"1", "4", "11"}), "\t" + data});
    }
  }

  void MutateLine() {
    const std::string other = OneOfOrLong(others_);
    const auto place = lines_.begin() + Below(lines_.size());
    const uint32_t how = Below(6);
    if (how == 0) std::swap(*place, lines_[Below(lines_.size())]);
    if (how == 1) *place += other;
    if (how == 2) *place = other;
    if (how == 3) lines_.insert(place, other);
    if (how == 4) lines_.insert(place, std::string(*place));
    if (how == 5 && lines_.size() > 1) lines_.erase(place);
  }

  static inline const Choices others_ = MisplacedLines();
  std::minstd_rand random_;
  std::vector<std::string> lines_;
};

class RegistryMutationTest : public RegistryFixture {};

// KALODLL_MUTATIONS sets the number of files, KALODLL_MUTATION_SEED the number of the first one.
uint32_t Setting(const char* name, uint32_t otherwise) {
  const char* text = std::getenv(name);
  return text != nullptr ? static_cast<uint32_t>(std::strtoul(text, nullptr, 10)) : otherwise;
}

TEST_F(RegistryMutationTest, nearly_valid_files_read_as_scanf_reads_them) {
  const uint32_t files = Setting("KALODLL_MUTATIONS", 30000);
  const uint32_t seed = Setting("KALODLL_MUTATION_SEED", 1);
  std::map<uint32_t, uint32_t> outcomes;
  uint32_t rewritten = 0;
  for (uint32_t number = seed; number != seed + files; ++number) {
    Mutator mutator(number);
    const std::string file = mutator.File();
    Store(file);
    try {
      const auto checked =
          CheckRegistry(path_, [&](std::size_t limit) { return mutator.Below(limit); });
      ++outcomes[checked.code];
      rewritten += checked.rewritten ? 1 : 0;
    } catch (const std::logic_error& error) {
      FAIL() << "file " << number << ", " << error.what() << ":\n" << testing::PrintToString(file);
    }
  }
  for (const uint32_t code : {0u, 12u, 13u}) {
    std::cout << outcomes[code] << " files with code " << code << ", ";
    EXPECT_GT(outcomes[code], files / 50) << code;
  }
  std::cout << rewritten << " rewritten" << std::endl;
  EXPECT_GT(rewritten, files / 10);
}

}  // namespace
