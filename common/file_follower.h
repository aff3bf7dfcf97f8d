#pragma once

#include <sys/types.h>

#include <string>
#include <utility>

namespace common {

// Reads text that other processes append to a file. The file need not exist yet. If the file is
// truncated or replaced, reading starts again at its beginning.
class FileFollower {
 public:
  explicit FileFollower(std::string path) : path_(std::move(path)) {}
  ~FileFollower();
  FileFollower(const FileFollower&) = delete;
  FileFollower& operator=(const FileFollower&) = delete;

  // Returns the text that was appended since the last call, or all of it in the first call; empty
  // if there is none or reading fails.
  std::string Take();

 private:
  void Reopen();

  const std::string path_;
  int descriptor_ = -1;
  off_t position_ = 0;
};

}  // namespace common
