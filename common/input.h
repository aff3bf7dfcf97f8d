#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "common/input_error.h"

namespace common {

// Hands the content of a file, or of standard input for "-", out in pieces. Throws InputError.
void ReadBlocks(const std::string& path, const std::function<void(std::string_view)>& consumer);

// Enough for all that is read as a whole, so that a wrong name does not fill the memory.
inline constexpr std::size_t kLongestInput = 1 << 26;

class InputTooLong : public InputError {
 public:
  using InputError::InputError;
};

// The whole content of it. Throws InputError, which is InputTooLong for more than `most` bytes.
std::string ReadInput(const std::string& path, std::size_t most = kLongestInput);

// How messages name an input.
std::string InputName(const std::string& path);

}  // namespace common
