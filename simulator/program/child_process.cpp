#include "simulator/program/child_process.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "simulator/program/program.h"

namespace zulisim {
namespace {

sigset_t HeldSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : {SIGCHLD, SIGTERM, SIGHUP, SIGINT, SIGQUIT, SIGUSR1, SIGUSR2}) {
    sigaddset(&set, number);
  }
  return set;
}

// What the child is to find as it was.
sigset_t maskBefore;
bool pipeEndsProgram = true;

std::vector<char*> Pointers(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

std::vector<std::string> Merged(const std::map<std::string, std::string>& additions) {
  std::vector<std::string> merged;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    if (additions.count(text.substr(0, text.find('='))) == 0) merged.push_back(text);
  }
  for (const auto& [name, value] : additions) merged.push_back(name + "=" + value);
  return merged;
}

pid_t Start(const std::string& path, const std::vector<std::string>& arguments,
            const std::map<std::string, std::string>& environment) {
  const std::vector<std::string> variables = Merged(environment);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setsigmask(&attributes, &maskBefore);
  sigset_t defaults;
  sigemptyset(&defaults);
  if (pipeEndsProgram) sigaddset(&defaults, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  pid_t child = -1;
  const int error = posix_spawn(&child, path.c_str(), nullptr, &attributes,
                                Pointers(arguments).data(), Pointers(variables).data());
  posix_spawnattr_destroy(&attributes);
  if (error != 0) {
    throw ProgramError(error == ENOENT ? kNotFound : kCannotRun,
                       "'" + path + "' cannot be started: " + std::strerror(error));
  }
  return child;
}

}  // namespace

ChildSignals::ChildSignals() {
  const sigset_t held = HeldSignals();
  signal(SIGCHLD, SIG_DFL);  // a shell may have left it ignored, and a wait would fail
  pipeEndsProgram = signal(SIGPIPE, SIG_IGN) == SIG_DFL;
  pthread_sigmask(SIG_BLOCK, &held, &maskBefore);
}

ChildSignals::~ChildSignals() {
  // What arrived too late to be passed on is not to end this process either.
  const sigset_t held = HeldSignals();
  const struct timespec now {};
  while (sigtimedwait(&held, nullptr, &now) > 0) {
  }
  pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
}

int RunChild(const std::string& path, const std::vector<std::string>& arguments,
             const std::map<std::string, std::string>& environment) {
  const pid_t child = Start(path, arguments, environment);
  const sigset_t held = HeldSignals();
  while (true) {
    int status = 0;
    if (waitpid(child, &status, WNOHANG) == child) {
      return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }
    siginfo_t info;
    const int number = sigwaitinfo(&held, &info);
    // A terminal's signals reach the child without help.
    if (number > 0 && number != SIGCHLD && info.si_code != SI_KERNEL) kill(child, number);
  }
}

}  // namespace zulisim
