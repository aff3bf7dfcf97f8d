#pragma once

#include <sys/types.h>

#include <string>

namespace common {

// Reads what others append to a file. One that is not there yet is waited for; one that was cut or
// replaced is read from its beginning.
class FileFollower {
 public:
  enum class From { kBeginning, kEnd };

  // With kEnd, what the file holds already is passed over.
  FileFollower(std::string path, From from);
  ~FileFollower();
  FileFollower(const FileFollower&) = delete;
  FileFollower& operator=(const FileFollower&) = delete;

  // What has come since the last call, empty when there is nothing or the file cannot be read.
  std::string Take();

 private:
  void Reopen();

  const std::string path_;
  int descriptor_ = -1;
  off_t position_ = 0;
};

}  // namespace common
