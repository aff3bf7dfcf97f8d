// Calls all entry points in random sequences, with device faults.

#include "tests/api/sequences.h"

namespace test {
namespace {

#ifdef __SANITIZE_THREAD__  // fewer, because the test has only one thread
constexpr unsigned kSequences = 1000;
#else
constexpr unsigned kSequences = 10000;
#endif

class Sequences : public SequencesTest {
 protected:
  std::string RunAll(const Sequence& sequence) {
    Start();
    std::string wrong;
    size_t number = 0;
    for (const Step& step : sequence) {
      wrong = Run(step);
      ++number;
      if (!wrong.empty()) break;
    }
    Finish();
    return wrong.empty() ? "" : "step " + std::to_string(number) + ": " + wrong;
  }
};

TEST_F(Sequences, drawn_at_random_keep_the_rules) {
  std::mt19937 random(20240607);
  for (unsigned i = 0; i < kSequences; ++i) {
    Sequence sequence = RandomSequence(random);
    traced = i % 2 == 1;
    negative = i % 3 == 1;
    std::string wrong = RunAll(sequence);
    if (wrong.empty()) continue;
    // Removes each step without which the failure still happens.
    for (size_t step = sequence.size(); step-- != 0;) {
      Sequence shorter = sequence;
      shorter.erase(shorter.begin() + static_cast<long>(step));
      const std::string found = RunAll(shorter);
      if (!found.empty()) wrong = found, sequence = shorter;
    }
    FAIL() << "sequence " << i << "; the shortest that was seen:\n" << Describe(sequence) << wrong;
  }
}

class ErrorText : public LibraryTest {};

TEST_F(ErrorText, is_logged_in_full_whatever_its_length) {
  const std::string text(2000, 'x');
  injected = {Point::kConnectClient, InjectedFailure::kRefuse, 0, text.c_str()};
  void* handle = nullptr;
  EXPECT_EQ(KaloInit3(&handle), 0x4Du);
  EXPECT_EQ(WithoutTag(TakeRaw().back()), "KaloInit3: KALO Exception 0x4d " + text);
}

}  // namespace
}  // namespace test
