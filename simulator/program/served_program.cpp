#include "simulator/program/served_program.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "common/format.h"
#include "common/text.h"

namespace zulisim {
namespace {

namespace fs = std::filesystem;

// The address of a local socket can hold only about 100 characters.
constexpr std::size_t kMaxParentLength = 64;

std::string TemporaryParent() {
  const char* configured = getenv("TMPDIR");
  const std::string parent = configured != nullptr ? configured : "";
  const bool usable = !parent.empty() && parent.front() == '/' && parent.size() <= kMaxParentLength;
  return usable ? parent : "/tmp";
}

// Creates `root` and the folders "data" and "etc" in it if they are missing. Returns the absolute
// path. Throws std::runtime_error if that fails, or if one of the entries is a symbolic link,
// because the program's files would then be elsewhere.
std::string PrepareRoot(const std::string& root) {
  constexpr const char* kRemedy = "choose another folder with --root DIR";
  const fs::path path = root;
  try {
    for (const char* name : {"data", "etc", "data/Marvoleth.log", "etc/vrel_registry.txt"}) {
      if (!fs::is_symlink(fs::symlink_status(path / name))) continue;
      throw std::runtime_error(common::Format(
          "cannot use the folder {}: {} is a symbolic link; remove it or {}", common::Quoted(root),
          common::Quoted(fs::absolute(path / name).string()), kRemedy));
    }
    for (const char* name : {"data", "etc"}) fs::create_directories(path / name);
    return fs::canonical(path).string();
  } catch (const fs::filesystem_error& error) {
    throw std::runtime_error(common::Format("cannot use the folder {}: {}; {}",
                                            common::Quoted(root), error.code().message(), kRemedy));
  }
}

}  // namespace

TemporaryFolder::TemporaryFolder() : path_(TemporaryParent() + "/zulisim.XXXXXX") {
  if (mkdtemp(path_.data()) == nullptr) {
    throw std::runtime_error(
        common::Format("cannot create the temporary folder {}: {}; set TMPDIR to another folder",
                       common::Quoted(path_), std::strerror(errno)));
  }
  parent_ = open(fs::path(path_).parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
}

TemporaryFolder::~TemporaryFolder() {
  const std::string parent = "/proc/self/fd/" + std::to_string(parent_);
  std::error_code error;
  fs::remove_all(parent / fs::path(path_).filename(), error);
  close(parent_);
  if (!error) return;
  std::cerr << common::Format("zulisim: warning: cannot remove the temporary folder {}: {}\n",
                              common::Quoted(path_), error.message());
}

ServedProgram::ServedProgram(std::string path, std::vector<std::string> arguments,
                             const std::string& root)
    : path_(std::move(path)),
      arguments_(std::move(arguments)),
      root_(PrepareRoot(root.empty() ? folder_.path() + "/root" : root)) {}

int ServedProgram::Run(Device& device) {
  const int status = Serve(device);
  if (!device.IsUsed()) std::cerr << "zulisim: warning: " + whyUnused_ + "\n";
  const std::string remaining = RemainingProcesses();
  if (!remaining.empty()) {
    std::cerr << "zulisim: warning: the program has ended and the device is gone, but these of its "
                 "processes are still running: " +
                     remaining + "\n";
  }
  return status;
}

}  // namespace zulisim
