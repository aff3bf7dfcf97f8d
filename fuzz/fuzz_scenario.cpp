// Reads any text as instructions to the software engine: as options, one per line, if it begins
// with a dash, else as a scenario file. The instructions must be accepted and applied, or rejected
// with a message.

#include <algorithm>
#include <sstream>

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

void ReadOptions(const std::string& text) {
  zulisim::Scenario scenario;
  std::istringstream lines(text);
  for (std::string name, value; lines >> name && std::getline(lines >> std::ws, value);) {
    for (const zulisim::InstructionOption& option : zulisim::InstructionOptions()) {
      const auto add = [&] { option.add(value, &scenario); };
      if (name == "--" + option.name) Accepts<std::invalid_argument>(add);
    }
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
  FUZZ_CHECK(wrong.empty() ? CanApply(scenario)
                           : scenario.replies.empty() && scenario.faults.empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  text[0] == '-' ? ReadOptions(text) : ReadFile(text);
  return 0;
}
