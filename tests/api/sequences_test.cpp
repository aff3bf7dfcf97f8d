// Calls all entry points in random sequences, with device faults.

#include "tests/api/sequences.h"

namespace test {
namespace {

#ifdef __SANITIZE_THREAD__  // fewer, because the test has only one thread
constexpr unsigned kSequences = 1000;
#else
constexpr unsigned kSequences = 10000;
#endif

class Sequences : public SequencesTest {};

TEST_F(Sequences, drawn_at_random_keep_the_rules) {
  for (unsigned seed = 0; seed < kSequences; ++seed) {
    traced = seed % 2 == 1;
    negative = seed % 3 == 1;
    Start();
    unsigned number = 0;
    for (const Step& step : RandomSequence(std::mt19937(seed))) {
      ASSERT_EQ(Run(step), "") << "seed " << seed << ", step " << ++number << ", "
                               << step.call->name << ", operations " << operations;
    }
    Finish();
  }
}

class ErrorText : public LibraryTest {};

TEST_F(ErrorText, is_logged_in_full_whatever_its_length) {
  const std::string text(2000, 'x');
  injected = {Point::kConnectClient, text.c_str()};
  void* handle = nullptr;
  EXPECT_EQ(KaloInit3(&handle), 0x4Du);
  EXPECT_EQ(WithoutTag(TakeRaw().back()), "KaloInit3: KALO Exception 0x4d " + text);
}

}  // namespace
}  // namespace test
