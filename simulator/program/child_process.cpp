#include "simulator/program/child_process.h"

#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <initializer_list>

#include "common/format.h"
#include "common/text.h"
#include "simulator/program/program.h"

namespace zulisim {
namespace {

sigset_t SetOf(std::initializer_list<int> numbers) {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : numbers) sigaddset(&set, number);
  return set;
}

// RunChild waits for these signals and sends them to the child, except for SIGCHLD.
sigset_t AwaitedSignals() {
  return SetOf({SIGCHLD, SIGTERM, SIGHUP, SIGINT, SIGQUIT, SIGUSR1, SIGUSR2});
}

sigset_t maskBefore;  // the child starts with this mask

pid_t Start(const std::string& path, const std::vector<std::string>& arguments) {
  std::vector<char*> pointers;
  for (const std::string& text : arguments) pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setsigmask(&attributes, &maskBefore);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
  pid_t child = -1;
  const int error =
      posix_spawn(&child, path.c_str(), nullptr, &attributes, pointers.data(), environ);
  posix_spawnattr_destroy(&attributes);
  if (error == 0) return child;
  throw ProgramError(
      error == ENOENT ? kNotFound : kCannotRun,
      common::Format("cannot start {}: {}{}", common::Quoted(path), std::strerror(error),
                     error == ENOENT ? "; check the interpreter that it names" : ""));
}

}  // namespace

ChildSignals::ChildSignals() {
  signal(SIGCHLD, SIG_DFL);  // some shells leave it ignored, and waitpid then fails
  // While these are blocked, a write to a closed pipe or beyond a size limit fails with an errno
  // instead.
  const sigset_t ofWrites = SetOf({SIGPIPE, SIGXFSZ});
  const sigset_t awaited = AwaitedSignals();
  pthread_sigmask(SIG_BLOCK, &ofWrites, &maskBefore);
  pthread_sigmask(SIG_BLOCK, &awaited, nullptr);
}

ChildSignals::~ChildSignals() {
  // Signals that arrived too late for the child must not end this process either.
  sigset_t blocked;
  sigfillset(&blocked);
  const struct timespec now {};
  while (sigtimedwait(&blocked, nullptr, &now) > 0) {
  }
  pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
}

int RunChild(const std::string& path, const std::vector<std::string>& arguments) {
  // Processes whose parent ends become children of this process, so RemainingProcesses finds them.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  const pid_t child = Start(path, arguments);
  const sigset_t awaited = AwaitedSignals();
  while (true) {
    int status = 0;
    for (pid_t ended; (ended = waitpid(-1, &status, WNOHANG)) > 0;) {
      if (ended != child) continue;
      return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }
    siginfo_t info;
    const int number = sigwaitinfo(&awaited, &info);
    // The terminal sends its signals to the child too.
    if (number > 0 && number != SIGCHLD && info.si_code != SI_KERNEL) kill(child, number);
  }
}

std::string RemainingProcesses() {
  pid_t ended = 0;
  while ((ended = waitpid(-1, nullptr, WNOHANG)) > 0) {
  }
  if (ended < 0) return "";
  std::vector<std::string> processes;
  std::ifstream children("/proc/thread-self/children");
  for (std::string process; children >> process;) {
    std::string name;
    std::getline(std::ifstream("/proc/" + process + "/comm"), name);
    processes.push_back(common::Format("{} ({})", process, common::Printable(name)));
  }
  return processes.empty() ? "unknown" : common::Joined(processes);  // the kernel lacks that file
}

}  // namespace zulisim
