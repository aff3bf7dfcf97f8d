#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

// Ends the run as a finding.
#define FUZZ_CHECK(condition)                                                            \
  do {                                                                                   \
    if (!(condition)) {                                                                  \
      std::fprintf(stderr, "%s:%d: %s does not hold\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                      \
    }                                                                                    \
  } while (false)

// The text up to its first NUL and one NUL, in a block that is not a byte longer.
inline std::unique_ptr<char[]> Exact(const std::string& text) {
  std::unique_ptr<char[]> copy(new char[std::strlen(text.c_str()) + 1]);
  std::strcpy(copy.get(), text.c_str());
  return copy;
}
