#include "tools/registry/registry_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "common/input.h"
#include "common/input_error.h"
#include "common/number.h"
#include "common/text.h"
#include "oscl/last_error.h"
#include "tools/registry/registry_edit.h"

namespace kaloctl {
namespace {

[[noreturn]] void Fail(const std::string& what, uint32_t code) {
  throw RegistryError(what + " (code " + std::to_string(code) + ", " + RegistryCodeText(code) +
                      ")");
}

[[noreturn]] void FailAt(const std::string& path, const RegistryFault& fault,
                         const std::string& advice) {
  Fail("'" + path + "', line " + std::to_string(fault.line()) + ": " + fault.what() + advice,
       fault.code());
}

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

std::string Attribute(int file, const char* name) {
  std::string value(1 << 16, '\0');  // as long as any
  const ssize_t size = fgetxattr(file, name, value.data(), value.size());
  value.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  return value;
}

// Gives a new file the owner and the rights of the one that it replaces, access lists and security
// labels included. False with errno.
bool KeepRights(int from, int to) {
  struct stat status {};
  if (fstat(from, &status) != 0 || fchown(to, status.st_uid, status.st_gid) != 0) return false;
  std::string names(1 << 16, '\0');
  const ssize_t length = flistxattr(from, names.data(), names.size());
  names.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  for (const char* name = names.c_str(); *name != '\0'; name += std::strlen(name) + 1) {
    const std::string value = Attribute(from, name);
    // Labels come by themselves, and may not be set by everyone.
    if (Attribute(to, name) == value) continue;
    if (fsetxattr(to, name, value.data(), value.size(), 0) != 0) return false;
  }
  return fchmod(to, status.st_mode & 07777) == 0;
}

std::string Because(const char* what) { return std::string(what) + std::strerror(errno); }

// Puts a new file in the place of `target`, of which `old` is open. Returns why not, or nothing.
std::string Replace(const std::string& target, const std::string& content, std::FILE* old) {
  std::string name = target + ".XXXXXX";
  const int descriptor = mkostemp(name.data(), O_CLOEXEC);
  if (descriptor < 0) return Because("no file can be made beside it: ");
  const File file(fdopen(descriptor, "w"));
  std::string why;
  if (std::fwrite(content.data(), 1, content.size(), file.get()) != content.size() ||
      std::fflush(file.get()) != 0) {
    why = Because("");
  } else if (!KeepRights(fileno(old), descriptor)) {
    why = Because("its owner and rights cannot be kept: ");
  } else if (fsync(descriptor) != 0 || std::rename(name.c_str(), target.c_str()) != 0) {
    why = Because("");
  }
  if (!why.empty()) unlink(name.c_str());
  return why;
}

// So that the new name is on the disk too. What cannot be synced stays as it is.
void SyncFolder(const std::filesystem::path& folder) {
  const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return;
  fsync(descriptor);
  close(descriptor);
}

}  // namespace

std::string RegistryCommand(const std::string& command, const std::string& path) {
  const bool hasBlank = path.find(' ') != std::string::npos;
  const std::string named = hasBlank ? "\"" + path + "\"" : path;
  return "'kaloctl registry " + command + (path == kRegistryPath ? "" : " --file " + named) + "'";
}

std::string ReadRegistryFile(const std::string& path) {
  try {
    return common::ReadInput(path);
  } catch (const common::InputTooLong& error) {
    Fail(error.what(), OSCL_ERROR_REG_FILE_UNREADABLE);
  } catch (const common::InputError&) {
    Fail("'" + path + "': " + std::strerror(errno), OSCL_ERROR_REG_FILE_UNREADABLE);
  }
}

RegistryText LoadRegistryFile(const std::string& path) {
  const std::string content = ReadRegistryFile(path);
  try {
    return ParseRegistry(content);
  } catch (const RegistryFault& fault) {
    FailAt(path, fault,
           IsRewritten(content) ? "; the library has rewritten the file: " +
                                      RegistryCommand("repair", path) + " makes it load again"
           : HasCarriageReturns(content)
               ? "; its lines end in CR LF: " + RegistryCommand("repair", path) + " mends them"
               : "");
  }
}

RegistryText LoadRegistryFileToEdit(const std::string& path) {
  const std::string content = ReadRegistryFile(path);
  try {
    return IsRewritten(content) ? ParseRewritten(content) : ParseRegistry(content);
  } catch (const RegistryFault& fault) {
    FailAt(path, fault, "");
  }
}

void RequireUndoubted(const RegistryText& registry, const std::string& path) {
  if (registry.doubt.empty()) return;
  throw common::InputError(
      common::Quoted(path) + " was not changed: " + registry.doubt +
      ". A text with line ends may have brought in keys and values that nobody wrote as such: look "
      "at what " +
      RegistryCommand("repair", path) + " shows, and add --force to it if all of that is right");
}

void WriteRegistryFile(const std::string& path, const std::string& content) {
  const auto fail = [&path](const std::string& why) {
    Fail("'" + path + "' was not changed: " + why, OSCL_ERROR_REG_FILE_UNWRITABLE);
  };
  std::signal(SIGXFSZ, SIG_IGN);  // a limit is to be an error, and to leave nothing behind
  const File old(std::fopen(path.c_str(), "ae"));
  if (old == nullptr) fail(Because(""));
  // The name that the system has for it: links are followed, for what they lead to is the file.
  std::error_code error;
  const std::filesystem::path target =
      std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fileno(old.get())), error);
  if (!std::filesystem::is_regular_file(target, error)) fail("a regular file is expected");
  const std::string why = Replace(target.string(), content, old.get());
  if (!why.empty()) fail(why);
  SyncFolder(target.parent_path());
}

std::size_t FindRegistryKey(const RegistryText& registry, const std::string& keyPath,
                            const std::string& file) {
  const RegistryKey* key = registry.FindByName(keyPath);
  if (key == nullptr) {
    Fail("key '" + keyPath + "' is not in the file: " + RegistryCommand("list", file) +
             " shows which are",
         OSCL_ERROR_REG_ID_NOT_FOUND);
  }
  const RegistryKey* found = registry.FindById(key->id);
  if (found->name != keyPath) {
    throw RegistryError(
        "key '" + keyPath + "' shares the id " + common::Hex(key->id, 8) + " with '" +
        common::Printable(found->name) +
        "', and the library reads that one instead: give the keys ids of their own");
  }
  return static_cast<std::size_t>(key - registry.keys.data());
}

}  // namespace kaloctl
