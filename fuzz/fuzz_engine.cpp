// Runs sequences of calls with device failures and checks the rules of the entry points.

#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz/check.h"
#include "tests/api/sequences.h"

namespace {

class Sequences : public test::SequencesTest {
 public:
  using CallsTest::traced;
  using SequencesTest::Finish;
  using SequencesTest::Run;

 private:
  void TestBody() override {}
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Sequences* const sequences = new Sequences;
  FuzzedDataProvider input(data, size);
  // The input makes the choices that the random tests make at random.
  const auto choose = [&input] { return uint32_t{input.ConsumeIntegral<uint8_t>()}; };
  sequences->traced = choose() % 2 == 1;
  for (const test::Step& step : test::RandomSequence(choose)) {
    const std::string wrong = sequences->Run(step);
    if (!wrong.empty()) std::fprintf(stderr, "%s: %s\n", step.call->name.c_str(), wrong.c_str());
    FUZZ_CHECK(wrong.empty());
  }
  sequences->Finish();
  return 0;
}
