// Calls all entry points in random sequences, with device faults.

#include "tests/api/sequences.h"

namespace test {
namespace {

TEST_F(SequencesTest, drawn_at_random_keep_the_rules) {
  for (unsigned seed = 0; seed < 5000; ++seed) {
    traced = seed % 2 == 1;
    unsigned number = 0;
    for (const Step& step : RandomSequence(std::mt19937(seed))) {
      ASSERT_EQ(Run(step), "") << "seed " << seed << ", step " << ++number << ", "
                               << step.call->name << ", operations " << operations;
    }
    Finish();
  }
}

}  // namespace
}  // namespace test
