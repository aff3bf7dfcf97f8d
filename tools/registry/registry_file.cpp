#include "tools/registry/registry_file.h"

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "common/format.h"
#include "common/input.h"
#include "common/text.h"
#include "oscl/last_error.h"

namespace kaloctl {
namespace {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

struct RemoveFile {
  void operator()(const char* name) const { unlink(name); }
};

// Copies the owner, the permissions, the access lists and the security labels of the replaced file
// to the new file. Returns false and leaves errno set on failure.
bool CopyPermissions(int from, int to) {
  struct stat status {};
  if (fstat(from, &status) != 0 || fchown(to, status.st_uid, status.st_gid) != 0) return false;
  std::string names(1 << 16, '\0'), value(names), other(names);  // the maximum size
  flistxattr(from, names.data(), names.size() - 1);
  for (const char* name = names.c_str(); *name != '\0'; name += std::strlen(name) + 1) {
    const ssize_t size = fgetxattr(from, name, value.data(), value.size());
    const ssize_t present = fgetxattr(to, name, other.data(), other.size());
    // The system sets security labels itself, and not every user may change them.
    if (size < 0 || (size == present && value.compare(0, size, other, 0, size) == 0)) continue;
    if (fsetxattr(to, name, value.data(), static_cast<std::size_t>(size), 0) != 0) return false;
  }
  return fchmod(to, status.st_mode & 07777) == 0;
}

}  // namespace

RegistryError::RegistryError(const std::string& what, std::uint32_t code)
    : std::runtime_error(common::Format("{} (code {})", what, code)) {}

RegistryText LoadRegistryFile(const std::string& path) {
  const std::string content = common::ReadInput(path);
  RegistryText registry = ParseRegistry(content);
  if (!registry.stop || registry.stop->code == OSCL_ERROR_SUCCESS) return registry;
  std::string text = registry.stop->Text(path);
  if (IsRewritten(content)) {
    text += "; the library has rewritten the file; run " +
            common::Quoted("kaloctl registry repair --file " + path);
  }
  throw RegistryError(text, registry.stop->code);
}

void WriteRegistryFile(const std::string& path, const std::string& content) {
  const auto require = [&path](bool done, const char* what) {
    if (done) return;
    throw RegistryError(
        common::Format("cannot change {}: {}{}", common::Quoted(path), what, std::strerror(errno)),
        OSCL_ERROR_REG_FILE_UNWRITABLE);
  };
  const File old(std::fopen(path.c_str(), "ae"));
  require(old != nullptr, "");
  // The path of the file after resolving all symbolic links.
  const std::string target =
      std::filesystem::read_symlink(common::Format("/proc/self/fd/{}", fileno(old.get())));
  errno = EINVAL;
  require(std::filesystem::is_regular_file(target), "it is not a regular file: ");
  std::string name = target + ".XXXXXX";
  const File file(fdopen(mkstemp(name.data()), "w"));
  require(file != nullptr, "cannot create a file in its folder: ");
  const std::unique_ptr<const char, RemoveFile> remover(name.c_str());
  require(std::fwrite(content.data(), 1, content.size(), file.get()) == content.size() &&
              std::fflush(file.get()) == 0,
          "");
  require(CopyPermissions(fileno(old.get()), fileno(file.get())),
          "cannot copy its owner and permissions: ");
  require(fsync(fileno(file.get())) == 0 && std::rename(name.c_str(), target.c_str()) == 0, "");
}

}  // namespace kaloctl
