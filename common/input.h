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

// Larger than every valid input, so that a wrong name does not fill the memory.
inline constexpr std::size_t kLongestInput = 1 << 26;

// Returns the whole content of a file, or of standard input for "-". Throws InputError, also for
// more than `most` bytes.
std::string ReadInput(const std::string& path, std::size_t most = kLongestInput);

// Returns the name of an input for messages.
std::string InputName(const std::string& path);

}  // namespace common
