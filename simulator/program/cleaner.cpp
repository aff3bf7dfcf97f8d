#include "simulator/program/cleaner.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <sstream>
#include <system_error>
#include <vector>

namespace zulisim {
namespace {

// Only a mount whose server is dead: one that was ended in order is gone already, and what else is
// mounted there is somebody's.
void Unmounted(const std::string& path) {
  struct statfs status {};
  if (statfs(path.c_str(), &status) == 0 || (errno != ENOTCONN && errno != ECONNABORTED)) return;
  if (umount2(path.c_str(), MNT_DETACH) == 0 || errno != EPERM) return;
  // Without privileges only the helper that mounted it may.
  const char* arguments[] = {"fusermount3", "-u", "-z", "-q", "--", path.c_str(), nullptr};
  pid_t helper = -1;
  if (posix_spawnp(&helper, arguments[0], nullptr, nullptr, const_cast<char**>(arguments),
                   environ) == 0) {
    waitpid(helper, nullptr, 0);
  }
}

void CleanUp(const std::string& entry) {
  const std::string path = entry.substr(1);
  std::error_code ignored;
  if (entry[0] == 'r') std::filesystem::remove_all(path, ignored);
  if (entry[0] == 'f') std::filesystem::remove(path, ignored);
  if (entry[0] == 'u') Unmounted(path);
}

// Neither every kernel nor every libc here has close_range.
void CloseAllBut(int kept) {
  std::vector<int> descriptors;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
    descriptors.push_back(std::stoi(entry.path().filename()));
  }
  for (const int descriptor : descriptors) {
    if (descriptor != kept) close(descriptor);
  }
}

// The process that stays: reads until its parent has ended, then does what it has read.
[[noreturn]] void Attend(int input) {
  // No signal of a terminal or a process group, and no pipe that somebody waits on.
  setsid();
  sigset_t all;
  sigfillset(&all);
  sigprocmask(SIG_BLOCK, &all, nullptr);
  signal(SIGCHLD, SIG_DFL);
  prctl(PR_SET_NAME, "zulisim-cleaner");
  dup2(input, STDIN_FILENO);
  CloseAllBut(STDIN_FILENO);
  for (int i = 0; i < 2; ++i) open("/dev/null", O_RDWR);
  if (chdir("/") != 0) _exit(1);
  std::string text;
  char buffer[4096];
  while (true) {
    const ssize_t count = read(STDIN_FILENO, buffer, sizeof(buffer));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    text.append(buffer, static_cast<std::size_t>(count));
  }
  std::istringstream stream(text);
  std::vector<std::string> entries;
  for (std::string entry; std::getline(stream, entry, '\0');) entries.push_back(entry);
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) CleanUp(*entry);
  _exit(0);
}

}  // namespace

Cleaner::Cleaner() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  process_ = fork();
  if (process_ == 0) {
    close(ends[1]);
    Attend(ends[0]);
  }
  close(ends[0]);
  pipe_ = ends[1];
  if (process_ < 0) {
    close(pipe_);
    throw std::system_error(errno, std::generic_category(), "fork");
  }
}

Cleaner::~Cleaner() {
  close(pipe_);
  while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

void Cleaner::Send(char action, const std::string& path) {
  const std::string entry = action + path + '\0';
  if (write(pipe_, entry.data(), entry.size()) != static_cast<ssize_t>(entry.size())) {
    throw std::system_error(errno, std::generic_category(), "the clean-up of '" + path + "'");
  }
}

}  // namespace zulisim
