#pragma once

#include <filesystem>
#include <iterator>

namespace test {

// Of this process, the one for the look included.
inline long OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                       std::filesystem::directory_iterator());
}

}  // namespace test
