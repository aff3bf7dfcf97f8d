#include "tools/registry/registry_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "common/format.h"
#include "common/input.h"
#include "common/text.h"
#include "oscl/last_error.h"

namespace kaloctl {

RegistryText LoadRegistryFile(const std::string& path) {
  RegistryText registry = ParseRegistry(common::ReadInput(path));
  if (!registry.stop || registry.stop->code == OSCL_ERROR_SUCCESS) return registry;
  throw std::runtime_error(registry.stop->Text(path));
}

void WriteRegistryFile(const std::string& path, const std::string& content) {
  const auto require = [&path](bool done, const char* what) {
    if (done) return;
    throw std::runtime_error(common::Format("cannot change {}: {}{} (code {})",
                                            common::Quoted(path), what, std::strerror(errno),
                                            OSCL_ERROR_REG_FILE_UNWRITABLE));
  };
  using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;
  const File old(std::fopen(path.c_str(), "ae"), &std::fclose);
  require(old != nullptr, "");
  // The path of the file after resolving all symbolic links.
  const std::string target =
      std::filesystem::read_symlink(common::Format("/proc/self/fd/{}", fileno(old.get())));
  errno = EINVAL;
  require(std::filesystem::is_regular_file(target), "it is not a regular file: ");
  std::string name = target + ".XXXXXX";
  const int descriptor = mkstemp(name.data());
  require(descriptor != -1, "cannot create a file in its folder: ");
  const File file(fdopen(descriptor, "w"), &std::fclose);
  const std::unique_ptr<const char, int (*)(const char*)> remover(name.c_str(), &unlink);
  require(file != nullptr &&
              std::fwrite(content.data(), 1, content.size(), file.get()) == content.size() &&
              std::fflush(file.get()) == 0,
          "");
  struct stat status {};
  require(fstat(fileno(old.get()), &status) == 0 &&
              fchown(fileno(file.get()), status.st_uid, status.st_gid) == 0 &&
              fchmod(fileno(file.get()), status.st_mode & 07777) == 0,
          "cannot copy its owner and permissions: ");
  require(fsync(fileno(file.get())) == 0 && std::rename(name.c_str(), target.c_str()) == 0, "");
}

}  // namespace kaloctl
