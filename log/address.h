#pragma once

#include <charconv>
#include <cstdint>
#include <ostream>

namespace logging {

// A pointer that prints alike with every standard library: "0x" and digits, or "0" for null.
struct Address {
  const void* value;
};

inline std::ostream& operator<<(std::ostream& stream, Address address) {
  if (address.value == nullptr) return stream << '0';
  char text[sizeof "0x" + 2 * sizeof address.value] = "0x";
  *std::to_chars(text + 2, std::end(text), reinterpret_cast<uintptr_t>(address.value), 16).ptr = 0;
  return stream << text;
}

}  // namespace logging
