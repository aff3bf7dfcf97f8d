// Any text as an instruction to the software engine: it is taken, and then holds, or refused with a
// message.

#include <fuzzer/FuzzedDataProvider.h>

#include <stdexcept>

#include "fuzz/check.h"
#include "simulator/scenario_options.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static constexpr decltype(&zulisim::AddClientOption) kOptions[] = {
      zulisim::AddClientOption, zulisim::AddReplyOption, zulisim::AddFaultOption,
      zulisim::AddShortOption, zulisim::AddLossOption};
  FuzzedDataProvider input(data, size);
  zulisim::Scenario scenario;
  while (input.remaining_bytes() != 0) {
    const auto option = input.PickValueInArray(kOptions);
    try {
      option(input.ConsumeRandomLengthString(), &scenario);
    } catch (const std::invalid_argument& error) {
      FUZZ_CHECK(*error.what() != '\0');
    }
  }
  // What was taken one by one may still contradict itself, but is told so.
  try {
    zulisim::Engine engine({scenario.clients});
    zulisim::Apply(scenario, &engine);
  } catch (const std::invalid_argument& error) {
    FUZZ_CHECK(*error.what() != '\0');
  }
  return 0;
}
