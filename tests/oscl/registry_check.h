#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

struct CheckedRegistry {
  uint32_t code;   // the result of loading the file
  bool rewritten;  // true if a value was set, as the last step
};

// Makes every registry and settings call on the file and compares the results with those of a
// second reader. `below` chooses a number below its argument. Throws std::logic_error for a
// difference.
CheckedRegistry CheckRegistry(const std::string& path,
                              const std::function<uint32_t(std::size_t)>& below);
