#pragma once

#include <filesystem>
#include <iterator>

namespace test {

// Returns the number of open descriptors of this process, including the one that is used for
// counting.
inline long OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                       std::filesystem::directory_iterator());
}

}  // namespace test
