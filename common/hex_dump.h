#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string_view>

namespace kaloctl {

// Offset, sixteen bytes and their characters on each line, every line behind `indent`. Lines that
// repeat the one before are shown as one "*".
void PrintHexDump(std::ostream& out, const uint8_t* bytes, std::size_t size,
                  std::string_view indent);

}  // namespace kaloctl
