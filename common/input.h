#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "common/input_error.h"

namespace common {

// Passes the content of a file, or of standard input for "-", to `consumer` in pieces. Throws
// InputError.
void ReadBlocks(const std::string& path, const std::function<void(std::string_view)>& consumer);

// Larger than every valid input. The limit keeps a wrong file name from filling the memory.
inline constexpr std::size_t kLongestInput = 1 << 26;

// Returns the whole content of a file, or of standard input for "-". Throws InputError if reading
// fails or the content is longer than `most` bytes.
std::string ReadInput(const std::string& path, std::size_t most = kLongestInput);

// Returns the name of an input for use in messages.
std::string InputName(const std::string& path);

}  // namespace common
