#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>

// Aborts if the condition is false, so that libFuzzer reports a finding.
#define FUZZ_CHECK(condition)                                                       \
  do {                                                                              \
    if (!(condition)) {                                                             \
      std::fprintf(stderr, "%s:%d: %s is false\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                 \
    }                                                                               \
  } while (false)

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
