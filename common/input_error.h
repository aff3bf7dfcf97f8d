#pragma once

#include <stdexcept>

namespace kaloctl {

// Something that the user gave is wrong. The text names it and says what would be right.
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace kaloctl
