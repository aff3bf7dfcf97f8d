#pragma once

#include <sys/types.h>

#include <string>

namespace common {

// Reads text that other processes append to a file. The file need not exist yet. If the file is
// truncated or replaced, reading starts again at its beginning.
class FileFollower {
 public:
  enum class From { kBeginning, kEnd };

  // kEnd skips the text that the file already holds.
  FileFollower(std::string path, From from);
  ~FileFollower();
  FileFollower(const FileFollower&) = delete;
  FileFollower& operator=(const FileFollower&) = delete;

  // Returns the text that was appended since the last call; empty if there is none or reading
  // fails.
  std::string Take();

 private:
  void Reopen();

  const std::string path_;
  int descriptor_ = -1;
  off_t position_ = 0;
};

}  // namespace common
