// The bounded string functions on buffers that are exactly as long as they are said to be, each
// held against what it must do.

#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz/check.h"
#include "oscl/bounded_string.h"

namespace {

using Buffer = std::unique_ptr<char[]>;

// A refusal leaves the destination as it was.
void CheckCopies(FuzzedDataProvider& input) {
  const auto room = input.ConsumeIntegralInRange<uint32_t>(1, 48);
  const auto count = input.ConsumeIntegralInRange<uint32_t>(0, room);
  const Buffer source = Exact(input.ConsumeRandomLengthString(64));
  const std::string text = source.get();
  const std::string filler(room - 1, '.');
  Buffer target = Exact(filler);
  const bool fits = text.size() < room;
  FUZZ_CHECK(strcpy_s(target.get(), room, source.get()) == (fits ? 0 : 1));
  FUZZ_CHECK(target.get() == (fits ? text : filler));

  target = Exact(filler);
  FUZZ_CHECK(strncpy_s(target.get(), room, source.get(), count) == (fits ? 0 : 1));
  std::string expected = filler + '\0';
  for (uint32_t i = 0; fits && i < count; ++i) expected[i] = i < text.size() ? text[i] : '\0';
  FUZZ_CHECK(std::memcmp(target.get(), expected.data(), room) == 0);

  target = Exact(filler);
  target[count % room] = '\0';
  const std::string head = target.get();
  const bool joins = head.size() + text.size() < room;
  FUZZ_CHECK(strcat_s(target.get(), room, source.get()) == (joins ? 0 : 1));
  FUZZ_CHECK(target.get() == (joins ? head + text : head));

  const auto bytes = static_cast<uint32_t>(text.size() + 1);
  target = Exact(filler);
  FUZZ_CHECK(memcpy_s(target.get(), room, source.get(), bytes) == (bytes <= room ? 0 : 1));
  if (bytes <= room) FUZZ_CHECK(std::memcmp(target.get(), source.get(), bytes) == 0);
}

void CheckPrint(FuzzedDataProvider& input) {
  const auto room = input.ConsumeIntegralInRange<uint32_t>(0, 48);
  const auto count = input.ConsumeIntegralInRange<uint32_t>(0, 50);
  const int number = input.ConsumeIntegral<int>();
  const int width = input.ConsumeIntegralInRange(-70, 70);
  const Buffer text = Exact(input.ConsumeRandomLengthString(64));
  const Buffer target(new char[room]);
  char whole[512];
  int length = 0;
  int32_t result = 0;
#define PRINT_BOTH(...)                                                              \
  length = std::snprintf(whole, sizeof whole, __VA_ARGS__),                          \
  result = input.ConsumeBool() ? _snprintf_s(target.get(), room, count, __VA_ARGS__) \
                               : _sntprintf_s(target.get(), room, count, __VA_ARGS__)
  const auto form = input.ConsumeIntegralInRange(0, 2);
  if (form == 0) PRINT_BOTH("%s", text.get());
  if (form == 1) PRINT_BOTH("%*d|%s", width, number, text.get());
  if (form == 2) PRINT_BOTH("%-*.*s%% 0x%08x", width, number % 64, text.get(), 7u);
#undef PRINT_BOTH
  if (count == 0 || count > room) {
    FUZZ_CHECK(result == 1);
    return;
  }
  FUZZ_CHECK(result == length);
  FUZZ_CHECK(std::string(target.get()) == std::string(whole).substr(0, room - 1));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  input.ConsumeBool() ? CheckCopies(input) : CheckPrint(input);
  return 0;
}
