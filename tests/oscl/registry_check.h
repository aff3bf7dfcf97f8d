#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

struct CheckedRegistry {
  uint32_t code;   // of loading the file
  bool rewritten;  // a value has been set, as the last of all
};

// Puts the file to the library by every call of the registry and of the settings, and holds the
// answers against a second reader. `below` makes the choices: a number below its argument. Throws
// std::logic_error for what does not hold.
CheckedRegistry CheckRegistry(const std::string& path,
                              const std::function<uint32_t(std::size_t)>& below);
