// Runs the checks of a fuzz target on its seeds and on random changes of them.

#include "tests/support/standard_headers.h"

#include <numeric>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

class Seeds : public testing::Test {
 protected:
  using Lines = std::vector<std::string>;  // with their line ends

  Seeds() {
    const std::filesystem::directory_iterator folder(KALODLL_SEEDS);
    for (const auto& path : std::set<std::filesystem::path>(begin(folder), end(folder))) {
      std::ifstream file(path, std::ios::binary);
      Lines& lines = seeds_.emplace_back();
      for (std::string line; std::getline(file, line);) lines.push_back(line + '\n');
    }
  }

  static void Check(const Lines& lines) {
    const std::string input = std::accumulate(lines.begin(), lines.end(), std::string());
    EXPECT_NO_THROW(
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size()))
        << testing::PrintToString(input);
  }

  // Omits, adds and replaces a few lines of a seed, and changes a byte or cuts the end. The first
  // byte stays: it tells some targets what to do.
  Lines Changed() {
    Lines lines = OneOf(seeds_);
    for (size_t changes = Below(4); changes != 0; --changes) {
      const size_t at = 1 + Below(lines.size());
      if (at < lines.size() && Below(2) == 0) lines.erase(lines.begin() + at);
      if (Below(2) == 0) lines.insert(lines.begin() + at, OneOf(OneOf(seeds_)));
    }
    std::string& line = lines[Below(lines.size())];
    if (Below(2) == 0) line.replace(1 + Below(line.size()), 1, Below(2), char(Below(256)));
    if (Below(8) == 0) lines.resize(1 + Below(lines.size()));
    if (Below(4) == 0) lines.back().pop_back();
    return lines;
  }

  size_t Below(size_t limit) { return random_() % limit; }
  template <typename Item>
  const Item& OneOf(const std::vector<Item>& items) {
    return items[Below(items.size())];
  }

  std::vector<Lines> seeds_;
  std::minstd_rand random_;
};

TEST_F(Seeds, pass_the_checks_as_they_are_and_changed) {
  for (const Lines& seed : seeds_) Check(seed);
  for (int count = 2000; count != 0 && !HasFailure(); --count) Check(Changed());
}

}  // namespace
