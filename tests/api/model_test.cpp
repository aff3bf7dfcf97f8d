// Random sequences of all entry points with random device faults, and with exceptions that the
// device cannot bring about, held against the model of the rules. KALODLL_MODEL_SEED and
// KALODLL_MODEL_SEQUENCES choose another seed and more sequences; a failure prints the shortest
// sequence that was seen to fail.

#include <iostream>

#include "tests/api/model_fixture.h"

extern "C" void __sanitizer_set_death_callback(void (*)()) __attribute__((weak));

namespace test {
namespace {

// What runs now, for a run that the sanitizer ends.
std::string running;

class ModelSequences : public ModelTest {
 protected:
  // The shortest sequence that failed on the way, and how; `difference` is that of the whole.
  Sequence Shrink(Sequence sequence, std::string& difference) {
    for (size_t i = 0; i < sequence.size();) {
      Sequence shorter = sequence;
      shorter.erase(shorter.begin() + static_cast<long>(i));
      if (const auto found = Run(shorter)) {
        difference = *found;
        sequence = shorter;
        i = 0;
      } else {
        ++i;
      }
    }
    return sequence;
  }
};

#ifdef __SANITIZE_THREAD__  // which has little to see in one thread
constexpr unsigned kSequences = 1000;
#else
constexpr unsigned kSequences = 10000;
#endif

unsigned FromEnvironment(const char* name, unsigned otherwise) {
  const char* text = getenv(name);
  return text != nullptr ? static_cast<unsigned>(std::stoul(text)) : otherwise;
}

TEST_F(ModelSequences, random_sequences_do_what_the_rules_say) {
  const unsigned seed = FromEnvironment("KALODLL_MODEL_SEED", 20240607);
  const unsigned sequences = FromEnvironment("KALODLL_MODEL_SEQUENCES", kSequences);
  if (__sanitizer_set_death_callback != nullptr) {
    __sanitizer_set_death_callback([] { std::cerr << running; });
  }
  std::mt19937 random(seed);
  for (unsigned i = 0; i < sequences; ++i) {
    const Sequence sequence = RandomSequence(random);
    traced = i % 2 == 1;
    running = "the sequence that was running:\n" + Describe(sequence);
    std::optional<std::string> difference = Run(sequence);
    if (!difference) continue;
    const Sequence shortest = Shrink(sequence, *difference);
    FAIL() << "sequence " << i << " of seed " << seed << "; at its shortest:\n"
           << Describe(shortest) << *difference;
  }
}

}  // namespace
}  // namespace test
