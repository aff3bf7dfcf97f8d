#include "simulator/output/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <utility>

#include "common/number.h"

namespace zulisim {
namespace {

// The descriptor that a name stands for, opened by whoever started this process, or -1. To open the
// name anew would write over what is in front of its place.
int DescriptorNamed(const std::string& path) {
  if (path == "-" || path == "/dev/stdout") return STDOUT_FILENO;
  if (path == "/dev/stderr") return STDERR_FILENO;
  for (const std::string folder : {"/dev/fd/", "/proc/self/fd/"}) {
    if (path.compare(0, folder.size(), folder) != 0) continue;
    const auto number = common::ParseNumber(path.substr(folder.size()), 1 << 20);
    if (number) return static_cast<int>(*number);
  }
  return -1;
}

bool IsRegular(int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

OutputFile::OutputFile(const std::string& what, const std::string& path, Access access)
    : name_("the " + what + " '" + path + "'"), path_(path), isPrivate_(access != Access::kShared) {
  const int named = DescriptorNamed(path);
  int descriptor = named < 0 ? -1 : fcntl(named, F_DUPFD_CLOEXEC, 0);
  if (named < 0) {
    descriptor =
        open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, isPrivate_ ? 0600 : 0666);
    isNew_ = descriptor >= 0;
    if (!isNew_ && errno == EEXIST) {
      // A link that leads to no file yet is there by its name.
      descriptor = open(path.c_str(), O_WRONLY | O_CLOEXEC | (isPrivate_ ? 0 : O_CREAT), 0666);
    }
    if (access == Access::kPrivateNew && descriptor >= 0 && !isNew_ && IsRegular(descriptor)) {
      close(descriptor);
      throw std::runtime_error(name_ +
                               " is there already: name another, or --force writes over it");
    }
  }
  file_ = descriptor < 0 ? nullptr : fdopen(descriptor, "w");
  if (file_ == nullptr) {
    throw std::runtime_error(name_ + " cannot be written: " + std::strerror(errno));
  }
  if (named >= 0) written_ = true;
  if (!isPrivate_) Empty();
}

// What is neither a file nor opened here has nothing to be taken away.
void OutputFile::Empty() {
  if (std::exchange(written_, true) || !IsRegular(fileno(file_))) return;
  Note(ftruncate(fileno(file_), 0) == 0);
  if (isPrivate_) Note(fchmod(fileno(file_), 0600) == 0);
}

bool OutputFile::Close() {
  if (file_ == nullptr) return error_ == 0;
  Note(std::fclose(std::exchange(file_, nullptr)) == 0);
  if (!written_ && isNew_) unlink(path_.c_str());
  if (error_ == 0) return true;
  std::cerr << "zulisim: warning: " << name_ << " is not complete: " << std::strerror(error_)
            << "\n";
  return false;
}

void OutputFile::Write(const std::string& text) {
  Empty();
  Note(std::fwrite(text.data(), 1, text.size(), file_) == text.size());
  Note(std::fflush(file_) == 0);
}

void OutputFile::Note(bool done) {
  if (!done && error_ == 0) error_ = errno;
}

}  // namespace zulisim
