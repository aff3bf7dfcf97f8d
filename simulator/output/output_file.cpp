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

// The open descriptor that a path stands for, or -1. Opening the path again would write over what
// precedes the descriptor's position. `dash` is the descriptor that "-" stands for.
int DescriptorNamed(const std::string& path, int dash) {
  if (path == "-") return dash;
  if (path == "/dev/stdout") return STDOUT_FILENO;
  if (path == "/dev/stderr") return STDERR_FILENO;
  for (const std::string folder : {"/dev/fd/", "/proc/self/fd/"}) {
    if (path.compare(0, folder.size(), folder) != 0) continue;
    const auto number = common::ParseNumber(path.substr(folder.size()), 1 << 20);
    if (number) return static_cast<int>(*number);
  }
  return -1;
}

// What a path leads to.
struct Target {
  Target(const std::string& named, int dash) {
    const int descriptor = DescriptorNamed(named, dash);
    exists = (descriptor < 0 ? stat(named.c_str(), &status) : fstat(descriptor, &status)) == 0;
    std::error_code ignored;
    path = std::filesystem::weakly_canonical(std::filesystem::absolute(named, ignored), ignored);
  }
  // Only for regular files: several outputs may share a terminal or /dev/null.
  bool SameAs(const Target& other) const {
    if (!exists && !other.exists) return !path.empty() && path == other.path;
    return exists && other.exists && S_ISREG(status.st_mode) &&
           status.st_dev == other.status.st_dev && status.st_ino == other.status.st_ino;
  }

  bool exists = false;
  struct stat status {};
  std::filesystem::path path;
};

bool IsRegular(int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

void CheckOutputs(const std::vector<NamedFile>& outputs, const std::vector<NamedFile>& inputs) {
  std::vector<std::pair<NamedFile, Target>> seen;
  for (const NamedFile& input : inputs) {
    if (!input.path.empty()) seen.emplace_back(input, Target(input.path, STDIN_FILENO));
  }
  for (const NamedFile& output : outputs) {
    if (output.path.empty()) continue;
    const Target target(output.path, STDOUT_FILENO);
    for (const auto& [file, other] : seen) {
      if (!target.SameAs(other)) continue;
      throw common::InputError(common::Format(
          "{}: {} is the same file as {}; choose another output file", output.name,
          common::Quoted(output.path),
          file.name + (file.path == output.path ? "" : " " + common::Quoted(file.path))));
    }
    seen.emplace_back(output, target);
  }
}

OutputFile::OutputFile(const std::string& what, const std::string& path, Existing existing)
    : name_("the " + what + " " + common::Quoted(path)), path_(path) {
  const int named = DescriptorNamed(path, STDOUT_FILENO);
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

// Only a regular file that was opened here has content to remove.
void OutputFile::Empty() {
  if (std::exchange(written_, true) || !IsRegular(fileno(file_))) return;
  Note(ftruncate(fileno(file_), 0) == 0);
  Note(fchmod(fileno(file_), 0600) == 0);
}

bool OutputFile::Close() {
  if (file_ == nullptr) return error_ == 0;
  Note(std::fclose(std::exchange(file_, nullptr)) == 0);
  if (!written_ && isNew_) unlink(path_.c_str());
  if (error_ == 0) return true;
  std::cerr << "zulisim: " << name_ << " is incomplete: " << std::strerror(error_) << "\n";
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
