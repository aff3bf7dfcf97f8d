// Reads any text as an instruction to the software engine, from the command line or a scenario
// file. The instruction must be accepted and applied, or rejected with a message.

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <stdexcept>

#include "fuzz/check.h"
#include "simulator/scenario/scenario_file.h"
#include "simulator/scenario/scenario_options.h"

namespace {

// Returns false if the engine rejects the scenario. The rejection must have a message.
bool CanApply(const zulisim::Scenario& scenario) {
  return Accepts<std::invalid_argument>([&] {
    zulisim::Engine engine({scenario.clients});
    zulisim::Apply(scenario, &engine);
  });
}

void ReadOptions(FuzzedDataProvider& input) {
  const auto& options = zulisim::InstructionOptions();
  zulisim::Scenario scenario;
  while (input.remaining_bytes() != 0) {
    const auto& option = options[input.ConsumeIntegralInRange<size_t>(0, options.size() - 1)];
    Accepts<std::invalid_argument>(
        [&] { option.add(input.ConsumeRandomLengthString(), &scenario); });
  }
  CanApply(scenario);
}

void ReadFile(const std::string& text) {
  zulisim::Scenario scenario;
  const auto wrong = zulisim::ReadScenario(text, "/nowhere/scenario.toml", &scenario);
  const auto lines = static_cast<uint32_t>(std::count(text.begin(), text.end(), '\n')) + 1;
  uint32_t last = 1;
  for (const common::Diagnostic& diagnostic : wrong) {
    FUZZ_CHECK(!diagnostic.message.empty());
    FUZZ_CHECK(diagnostic.line >= last && diagnostic.line <= lines);
    last = diagnostic.line;
  }
  if (wrong.empty()) {
    FUZZ_CHECK(CanApply(scenario));
  } else {
    FUZZ_CHECK(scenario.replies.empty() && scenario.faults.empty());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  if (input.ConsumeBool()) {
    ReadOptions(input);
  } else {
    ReadFile(input.ConsumeRemainingBytesAsString());
  }
  return 0;
}
