// Reads almost valid registry files with the library's parser and with scanf, and compares the
// results.

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <sstream>
#include <vector>

#include "tests/oscl/scanf_reader.h"

namespace {

using Choices = std::vector<std::string>;

Choices Split(const std::string& list) {
  std::istringstream text(list);
  Choices choices;
  for (std::string choice; std::getline(text, choice, '|');) choices.push_back(choice);
  return choices;
}

// Generates an almost valid file for each seed.
class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed * 2654435761u + 1) {}

  std::string File() {
    static const Choices ids = Split("1|0x2|0x80000001|fFfFfFfF|0"),
                         keys = Split("HKEY_USERS\\A|C"), values = Split("v|w|[VALUE]"),
                         types = Split("1|4|11"), data = Split("7|-1|4294967296|text|a b |[KEY]");
    for (size_t count = 1 + Below(4); count != 0; --count) {
      Add({"[KEY]", "\t" + OneOf(ids), "\t" + OneOf(keys)});
      for (size_t number = Below(50) == 0 ? 40 : Below(4); number != 0; --number) {
        Add({"\t\t[VALUE]", OneOf(values), OneOf(types), "\t" + OneOf(data)});
      }
    }
    if (Below(4) == 0) file_.replace(Below(file_.size()), 1, Below(2), char(Below(256)));
    if (Below(8) == 0) file_.resize(Below(file_.size()));
    return file_;
  }

 private:
  size_t Below(size_t limit) { return random_() % limit; }
  const std::string& OneOf(const Choices& choices) { return choices[Below(choices.size())]; }

  // Adds lines. Omits, repeats, extends or replaces a few of them.
  void Add(const Choices& lines) {
    using namespace std::string_literals;
    static const Choices odd = Split(
        "| |[KEY]|[VALUE]|[KEY] |[VALUE]\r|0x|-1|3|1\0x|\0|\0 v|99999999999999999999|"
        "-99999999999999999999|9223372036854775808|+5|+-5|-0X1|+0xg|\v\f|0x1 trailing|%s%n|\xFF\xA0"s);
    for (const std::string& line : lines) {
      const size_t how = Below(100);
      if (how == 0) continue;
      // A line about as long as the reader's limit.
      if (how == 1) file_ += std::string(253 + Below(4), "x5 "[Below(3)]) + OneOf({"", " [VALUE]"});
      if (how == 2 || how == 3) file_ += OneOf(odd) + '\n';
      file_ += (how == 4 ? OneOf(odd) : how == 5 ? line + OneOf(odd) : line) + '\n';
      if (how == 6) file_ += line + '\n';
    }
  }

  std::minstd_rand random_;
  std::string file_;
};

TEST(RegistryParser, reads_almost_valid_files_as_scanf_reads_them) {
  constexpr unsigned kFiles = 30000;
  std::map<std::string, unsigned> codes;
  for (unsigned seed = 1; seed <= kFiles; ++seed) {
    const std::string file = Generator(seed).File();
    const std::string rendered = RenderedByScanf(file);
    ASSERT_EQ(RenderedByLibrary(file), rendered) << "seed " << seed << ":\n"
                                                 << testing::PrintToString(file);
    ++codes[rendered.compare(0, 5, "code ") == 0 ? rendered : "loaded"];
  }
  for (const char* code : {"loaded", "code 12", "code 13"}) {
    EXPECT_GT(codes[code], kFiles / 50) << code;
  }
}

}  // namespace
