#include "simulator/program/served_program.h"

#include <stdlib.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace zulisim {
namespace {

// A local socket's address has room for little more than a hundred characters.
constexpr std::size_t kLongestParent = 64;

std::string Parent() {
  const char* configured = getenv("TMPDIR");
  const std::string parent = configured != nullptr ? configured : "";
  const bool usable = !parent.empty() && parent.front() == '/' && parent.size() <= kLongestParent;
  return usable ? parent : "/tmp";
}

// Makes `root` with the folders "data" and "etc" in it, as far as they are missing, and returns its
// absolute path. Throws std::runtime_error that names the folder, or a link in it which would lead
// what the program writes elsewhere.
std::string PrepareRoot(const std::string& root) {
  std::error_code error;
  const std::filesystem::path path = std::filesystem::absolute(root, error);
  for (const char* name : {"data", "etc", "data/Marvoleth.log", "etc/vrel_registry.txt"}) {
    if (!std::filesystem::is_symlink(path / name)) continue;
    throw std::runtime_error("'" + (path / name).string() +
                             "' is a symbolic link, which is not followed: remove it, or name "
                             "another folder: --root DIR");
  }
  for (const char* name : {"data", "etc"}) {
    if (!error) std::filesystem::create_directories(path / name, error);
  }
  if (error) {
    throw std::runtime_error("the folder '" + root + "' cannot be used: " + error.message());
  }
  return std::filesystem::canonical(path).string();
}

}  // namespace

TemporaryFolder::TemporaryFolder() : path_(Parent() + "/zulisim.XXXXXX") {
  if (mkdtemp(path_.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), "the temporary folder " + path_);
  }
  cleaner_.RemoveFolder(path_);
}

ServedProgram::ServedProgram(std::string path, std::vector<std::string> arguments,
                             const std::string& root)
    : path_(std::move(path)),
      arguments_(std::move(arguments)),
      root_(PrepareRoot(root.empty() ? folder_.path() + "/root" : root)) {}

}  // namespace zulisim
