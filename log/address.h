#pragma once

#include <ostream>

namespace logging {

// A pointer that prints alike with every standard library: "0x" and digits, or "0" for null.
struct Address {
  const void* value;
};

inline std::ostream& operator<<(std::ostream& stream, Address address) {
  if (address.value == nullptr) return stream << '0';
  return stream << address.value;
}

}  // namespace logging
