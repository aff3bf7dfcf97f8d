#pragma once

#include <stdexcept>
#include <string>

// Throws std::logic_error if the condition is false. No target catches it, so libFuzzer reports a
// finding and GoogleTest a failure.
#define FUZZ_CHECK(condition) \
  ((condition)                \
       ? void()               \
       : throw std::logic_error(__FILE__ ":" + std::to_string(__LINE__) + ": false: " #condition))

// Returns false if `call` throws an Error, which must have a message.
template <typename Error, typename Call>
bool Accepts(Call call) {
  try {
    call();
    return true;
  } catch (const Error& error) {
    FUZZ_CHECK(*error.what() != '\0');
    return false;
  }
}
