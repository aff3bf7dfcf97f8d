#include "simulator/output/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "common/format.h"
#include "common/input_error.h"
#include "common/number.h"
#include "common/text.h"

namespace zulisim {
namespace {

namespace fs = std::filesystem;

// If the path names an open descriptor, such as "/dev/fd/3", returns it, otherwise -1. Opening that
// path again would start to write at the beginning of the file.
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

// Checks only regular files: several outputs may share a terminal or /dev/null.
bool SameFile(const fs::path& one, const fs::path& other) {
  std::error_code error;
  if (fs::exists(one, error)) {
    return fs::is_regular_file(one, error) && fs::equivalent(one, other, error);
  }
  return fs::weakly_canonical(fs::absolute(one), error) ==
         fs::weakly_canonical(fs::absolute(other), error);
}

bool IsRegular(int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

void CheckOutputs(const std::vector<NamedFile>& outputs, std::vector<NamedFile> others) {
  for (NamedFile& input : others) {
    if (input.path == "-") input.path = "/dev/stdin";
  }
  for (NamedFile output : outputs) {
    const std::string shown = common::Quoted(output.path);
    if (output.path == "-") output.path = "/dev/stdout";
    for (const NamedFile& other : others) {
      if (output.path.empty() || other.path.empty() || !SameFile(output.path, other.path)) continue;
      throw common::InputError(
          common::Format("{}: {} is the same file as {} {}; choose another output file",
                         output.name, shown, other.name, common::Quoted(other.path)));
    }
    others.push_back(output);
  }
}

OutputFile::OutputFile(const std::string& what, const std::string& path, Existing existing)
    : name_("the " + what + " " + common::Quoted(path)), path_(path) {
  const int named = DescriptorNamed(path);
  int descriptor = named < 0 ? -1 : fcntl(named, F_DUPFD_CLOEXEC, 0);
  if (named < 0) {
    // Without O_NONBLOCK, a FIFO that has no reader would block here.
    constexpr int kFlags = O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK;
    descriptor = open(path.c_str(), kFlags | O_EXCL, 0600);
    isNew_ = descriptor >= 0;
    if (!isNew_ && errno == EEXIST) descriptor = open(path.c_str(), kFlags, 0600);
    if (existing == Existing::kRefuse && descriptor >= 0 && !isNew_ && IsRegular(descriptor)) {
      close(descriptor);
      throw std::runtime_error(name_ + " already exists; choose another name or use --force");
    }
    if (descriptor >= 0) fcntl(descriptor, F_SETFL, 0);
  }
  file_ = descriptor < 0 ? nullptr : fdopen(descriptor, "w");
  if (file_ == nullptr) {
    throw std::runtime_error("cannot write " + name_ + ": " +
                             (errno == ENXIO ? "no process reads the FIFO; start its reader first"
                                             : std::strerror(errno)));
  }
  if (named >= 0) written_ = true;
}

// Truncate only a regular file that the constructor opened.
void OutputFile::Empty() {
  if (std::exchange(written_, true) || !IsRegular(fileno(file_))) return;
  KeepError(ftruncate(fileno(file_), 0) == 0);
  KeepError(fchmod(fileno(file_), 0600) == 0);
}

bool OutputFile::Close() {
  if (file_ == nullptr) return error_ == 0;
  KeepError(std::fclose(std::exchange(file_, nullptr)) == 0);
  if (!written_ && isNew_) unlink(path_.c_str());
  if (error_ == 0) return true;
  std::cerr << "zulisim: " << name_ << " is incomplete: " << std::strerror(error_) << "\n";
  return false;
}

void OutputFile::Write(const std::string& text) {
  Empty();
  KeepError(std::fwrite(text.data(), 1, text.size(), file_) == text.size());
  KeepError(std::fflush(file_) == 0);
}

void OutputFile::KeepError(bool done) {
  if (!done && error_ == 0) error_ = errno;
}

}  // namespace zulisim
