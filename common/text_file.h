#pragma once

#include <cstddef>
#include <string>

namespace zulisim {

// Enough for anything that a person writes, and for recordings of hours.
inline constexpr std::size_t kMaxTextFile = 1 << 28;

// The content of a regular file. Throws std::runtime_error that names the file when it cannot be
// read or is longer than `most` bytes.
std::string ReadFile(const std::string& path, std::size_t most);

}  // namespace zulisim
