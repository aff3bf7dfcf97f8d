#pragma once

#include <sys/types.h>

#include <string>

namespace common {

// Reads text that other processes append to a file. The file may not exist yet. A file that was
// truncated or replaced is read from its beginning.
class FileFollower {
 public:
  enum class From { kBeginning, kEnd };

  // kEnd skips the present content of the file.
  FileFollower(std::string path, From from);
  ~FileFollower();
  FileFollower(const FileFollower&) = delete;
  FileFollower& operator=(const FileFollower&) = delete;

  // Returns the text since the last call, or an empty text if there is none or reading fails.
  std::string Take();

 private:
  void Reopen();

  const std::string path_;
  int descriptor_ = -1;
  off_t position_ = 0;
};

}  // namespace common
