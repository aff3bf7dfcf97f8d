#pragma once

#include <string>

#include "simulator/program/cleaner.h"

namespace zulisim {

// A folder of this process alone, removed with all that is in it at the end of the scope, and when
// the process ends before that. Make it before the first thread.
class TemporaryFolder {
 public:
  // Throws std::system_error.
  TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  Cleaner cleaner_;
};

// Makes `root` with the folders "data" and "etc" in it, as far as they are missing, and returns its
// absolute path. Throws std::runtime_error that names the folder.
std::string PrepareRoot(const std::string& root);

}  // namespace zulisim
