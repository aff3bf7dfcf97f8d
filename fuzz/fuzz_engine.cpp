// Runs sequences of calls with device failures and checks the rules of the entry points.

#include <fuzzer/FuzzedDataProvider.h>

#include <stdexcept>

#include "tests/api/sequences.h"

namespace {

struct Sequences : test::SequencesTest {
  using CallsTest::traced, SequencesTest::Finish, SequencesTest::Run;
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
    if (!wrong.empty()) throw std::logic_error(step.call->name + ": " + wrong);
  }
  sequences->Finish();
  return 0;
}
