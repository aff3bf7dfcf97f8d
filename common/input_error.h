#pragma once

#include <stdexcept>

namespace common {

// Something that the user gave is wrong. The text names it and says what would be right.
class InputError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

}  // namespace common
