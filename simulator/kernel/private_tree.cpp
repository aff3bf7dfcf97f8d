#include "simulator/kernel/private_tree.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <vector>

namespace zulisim {
namespace {

namespace fs = std::filesystem;

// Where the new tree shows the folder that "/data" and "/etc" come from.
constexpr const char* kRootName = ".zulisim";

[[noreturn]] void Fail(const std::string& what) {
  throw std::runtime_error("no private file tree for the program: " + what + ": " +
                           std::strerror(errno) +
                           "; 'zulisim run --device preload' needs none and serves dynamically "
                           "linked programs");
}

void Check(int result, const std::string& what) {
  if (result != 0) Fail(what);
}

void WriteText(const char* path, const std::string& text) {
  const int file = open(path, O_WRONLY | O_CLOEXEC);
  const bool written =
      file >= 0 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  if (!written) Fail(path);
  close(file);
}

void EnterNamespaces() {
  if (unshare(CLONE_NEWNS) == 0) return;
  const std::string user = std::to_string(geteuid());
  const std::string group = std::to_string(getegid());
  Check(unshare(CLONE_NEWUSER | CLONE_NEWNS),
        "the kernel allows neither this user nor an unprivileged user namespace to mount");
  WriteText("/proc/self/setgroups", "deny");
  WriteText("/proc/self/uid_map", user + " " + user + " 1");
  WriteText("/proc/self/gid_map", group + " " + group + " 1");
}

bool Bind(const std::string& from, const std::string& to) {
  return mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0;
}

bool MakeFile(const std::string& path, mode_t mode) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  if (file < 0) return false;
  fchmod(file, mode);
  close(file);
  return true;
}

// Shows an entry of the machine's tree at `to`. What cannot be shown is left out.
void Show(const fs::path& from, const std::string& to) {
  struct stat status {};
  if (lstat(from.c_str(), &status) != 0) return;
  if (S_ISLNK(status.st_mode)) {
    std::error_code ignored;
    fs::copy_symlink(from, to, ignored);
  } else if (S_ISDIR(status.st_mode)) {
    if (mkdir(to.c_str(), 0755) == 0 && !Bind(from, to)) rmdir(to.c_str());
  } else {
    if (MakeFile(to, 0644) && !Bind(from, to)) unlink(to.c_str());
  }
}

// Makes the folder `to` with all that is in `from`, but for the names in `without`.
void Mirror(const std::string& from, const std::string& to,
            const std::vector<std::string>& without) {
  if (mkdir(to.c_str(), 0755) != 0 && errno != EEXIST) Fail(to);
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(from, error)) {
    const std::string name = entry.path().filename().string();
    if (std::find(without.begin(), without.end(), name) != without.end()) continue;
    Show(entry.path(), to + "/" + name);
  }
}

// Makes `tree` the root folder; the old one is no longer reachable.
void Enter(const std::string& tree) {
  Check(chdir(tree.c_str()), tree);
  if (syscall(SYS_pivot_root, ".", ".") == 0) {
    Check(umount2(".", MNT_DETACH), "the old root folder");
  } else {
    // The root folder of an initial RAM disk stays where it is.
    Check(chroot("."), "the new root folder");
  }
}

}  // namespace

void EnterPrivateTree(const std::string& work, const std::string& root) {
  std::error_code error;
  const fs::path before = fs::current_path(error);
  EnterNamespaces();
  // What is mounted here stays here; what the machine mounts later still shows.
  Check(mount(nullptr, "/", nullptr, MS_REC | MS_SLAVE, nullptr), "mounts of its own");
  const std::string tree = work + "/tree";
  if (mkdir(tree.c_str(), 0755) != 0) Fail(tree);
  Check(mount("zulisim", tree.c_str(), "tmpfs", MS_NOSUID, "mode=0755"), "a tmpfs");
  Mirror("/", tree, {"dev", "etc", "data", kRootName});
  Mirror("/dev", tree + "/dev", {"zuli"});
  Mirror("/etc", tree + "/etc", {"vrel_registry.txt"});
  for (const auto& [from, name] : {std::pair<std::string, std::string>{root, kRootName},
                                   std::pair<std::string, std::string>{root + "/data", "data"}}) {
    const std::string to = tree + "/" + name;
    if (mkdir(to.c_str(), 0755) != 0 || !Bind(from, to)) Fail("'" + from + "'");
  }
  // A link, so that the file may be missing, be made and be removed.
  const std::string registry = std::string("/") + kRootName + "/etc/vrel_registry.txt";
  Check(symlink(registry.c_str(), (tree + "/etc/vrel_registry.txt").c_str()), "the registry");
  if (!MakeFile(tree + "/dev/zuli", 0666)) Fail("/dev/zuli");
  Enter(tree);
  Check(chdir(before.empty() ? "/" : before.c_str()), "the folder '" + before.string() + "'");
}

}  // namespace zulisim
