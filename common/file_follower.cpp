#include "common/file_follower.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace common {

FileFollower::~FileFollower() {
  if (descriptor_ >= 0) close(descriptor_);
}

void FileFollower::Reopen() {
  if (descriptor_ >= 0) close(descriptor_);
  descriptor_ = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
  position_ = 0;
}

std::string FileFollower::Take() {
  struct stat named {};
  struct stat held {};
  if (stat(path_.c_str(), &named) != 0) return "";
  const bool same = descriptor_ >= 0 && fstat(descriptor_, &held) == 0 &&
                    held.st_ino == named.st_ino && held.st_dev == named.st_dev &&
                    held.st_size >= position_;
  if (!same) Reopen();
  std::string text;
  char block[1 << 14];
  ssize_t count = 0;
  while ((count = pread(descriptor_, block, sizeof(block), position_)) > 0) {
    text.append(block, static_cast<std::size_t>(count));
    position_ += count;
  }
  return text;
}

}  // namespace common
