#include "simulator/kernel/private_tree.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "common/format.h"

namespace zulisim {
namespace {

namespace fs = std::filesystem;

// The name of `root` in the new tree.
constexpr const char* kRootName = ".zulisim";

void Check(bool done, const std::string& what) {
  if (done) return;
  throw std::runtime_error(common::Format(
      "cannot give the program a file tree of its own: {}: {}; a dynamically linked program needs "
      "none with --device preload",
      what, std::strerror(errno)));
}

void WriteText(const char* path, const std::string& text) {
  Check(static_cast<bool>(std::ofstream(path) << text << std::flush), path);
}

void EnterNamespaces() {
  if (unshare(CLONE_NEWNS) == 0) return;
  const auto user = geteuid();
  const auto group = getegid();
  Check(unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0,
        "this user may not mount, and the kernel refuses a user namespace");
  WriteText("/proc/self/setgroups", "deny");
  WriteText("/proc/self/uid_map", common::Format("{0} {0} 1", user));
  WriteText("/proc/self/gid_map", common::Format("{0} {0} 1", group));
}

bool Bind(const fs::path& from, const fs::path& to) {
  return mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0;
}

bool MakeFile(const fs::path& path, mode_t mode) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  return file >= 0 && fchmod(file, mode) == 0 && close(file) == 0;
}

// Shows an entry of the machine's tree at `to`. Leaves it out if that fails.
void MirrorEntry(const fs::path& from, const fs::path& to) {
  std::error_code error;
  const auto type = fs::symlink_status(from, error).type();
  if (type == fs::file_type::symlink) {
    fs::copy_symlink(from, to, error);
  } else if (type == fs::file_type::directory) {
    if (mkdir(to.c_str(), 0755) == 0 && !Bind(from, to)) rmdir(to.c_str());
  } else if (!error) {
    if (MakeFile(to, 0644) && !Bind(from, to)) unlink(to.c_str());
  }
}

// Creates the folder `to` with the entries of `from`, except for the names in `without`.
void MirrorFolder(const fs::path& from, const fs::path& to,
                  const std::vector<std::string>& without) {
  Check(mkdir(to.c_str(), 0755) == 0 || errno == EEXIST, to);
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(from, error)) {
    const std::string name = entry.path().filename();
    if (std::find(without.begin(), without.end(), name) == without.end())
      MirrorEntry(entry, to / name);
  }
}

}  // namespace

void EnterPrivateTree(const std::string& work, const std::string& root) {
  std::error_code error;
  const fs::path before = fs::current_path(error);
  EnterNamespaces();
  // The machine does not see mounts made here, but later mounts of the machine appear here.
  Check(mount(nullptr, "/", nullptr, MS_REC | MS_SLAVE, nullptr) == 0, "private mounts");
  const fs::path tree = fs::path(work) / "tree";
  Check(mkdir(tree.c_str(), 0755) == 0, tree);
  Check(mount("zulisim", tree.c_str(), "tmpfs", MS_NOSUID, "mode=0755") == 0, "a tmpfs");
  // `work` is also visible in the new tree. A command such as "rm -r /tmp/*" must not enter the
  // tree a second time there, and so reach the machine's folders.
  Check(mount(nullptr, tree.c_str(), nullptr, MS_UNBINDABLE, nullptr) == 0, "an unbindable tmpfs");
  MirrorFolder("/", tree, {"dev", "etc", "data", kRootName});
  MirrorFolder("/dev", tree / "dev", {"zuli"});
  MirrorFolder("/etc", tree / "etc", {"vrel_registry.txt"});
  for (const auto& [from, to] : {std::pair<fs::path, fs::path>{root, tree / kRootName},
                                 std::pair<fs::path, fs::path>{root + "/data", tree / "data"}}) {
    Check(mkdir(to.c_str(), 0755) == 0 && Bind(from, to), from);
  }
  // A link lets the program create and remove the file.
  fs::create_symlink(fs::path("/") / kRootName / "etc/vrel_registry.txt",
                     tree / "etc/vrel_registry.txt");
  Check(MakeFile(tree / "dev/zuli", 0666), "/dev/zuli");
  // Unlike pivot_root, this also works when the root folder is an initial RAM disk.
  Check(chdir(tree.c_str()) == 0 && mount(".", "/", nullptr, MS_MOVE, nullptr) == 0 &&
            chroot(".") == 0,
        "the new root folder");
  Check(chdir(before.empty() ? "/" : before.c_str()) == 0, before);
}

}  // namespace zulisim
