// Runs sequences of calls with device failures and checks the rules of the entry points.

#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz/check.h"
#include "tests/api/sequences.h"

namespace {

// The input makes the choices that the random tests make at random.
struct Choices {
  uint32_t operator()() { return input.ConsumeIntegral<uint8_t>(); }
  FuzzedDataProvider& input;
};

class Sequences : public test::SequencesTest {
 public:
  void CheckSequence(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    Choices choices{input};
    traced = choices() % 2 == 1;
    for (const test::Step& step : test::RandomSequence(choices)) {
      const std::string wrong = Run(step);
      if (!wrong.empty()) std::fprintf(stderr, "%s: %s\n", step.call->name, wrong.c_str());
      FUZZ_CHECK(wrong.empty());
    }
    Finish();
  }

 private:
  void TestBody() override {}
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Sequences* const sequences = new Sequences;
  sequences->CheckSequence(data, size);
  return 0;
}
