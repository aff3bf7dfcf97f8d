// Any sequence of calls, with any failures of the device and of what lies between, held against the
// model of the entry points.

#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz/check.h"
#include "tests/api/model_fixture.h"

namespace {

// What the random tests draw by chance is chosen by the input.
struct Choices {
  uint32_t operator()() { return input.ConsumeIntegral<uint8_t>(); }
  FuzzedDataProvider input;
};

class Model : public test::ModelTest {
 public:
  void Hold(const uint8_t* data, size_t size) {
    Choices choices{{data, size}};
    traced = choices() % 2 == 1;
    negative = choices() % 4 == 1;
    test::Sequence sequence = test::RandomSequence(choices);
    if (negative) {
      // The model does not know which of several messages is left in the device.
      const auto& [call, argument, shape, tag, faults, exception] = sequence.back();
      sequence = {{test::kFenuInit3}, {test::kStartIoEx3, 0, shape, tag, faults, exception}};
    }
    const std::optional<std::string> difference = Run(sequence);
    if (difference) std::fprintf(stderr, "%s%s\n", Describe(sequence).c_str(), difference->c_str());
    FUZZ_CHECK(!difference);
  }

 private:
  void TestBody() override {}
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Model* const model = new Model;
  model->Hold(data, size);
  return 0;
}
