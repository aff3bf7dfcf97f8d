#include "simulator/sweep/sweep_run.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "common/format.h"
#include "simulator/record/recording.h"

namespace zulisim {
namespace {

// Counts the replies by client, status and length. The command of a reply is unknown after a
// reconnect.
std::map<std::string, int> Replies(const SweepOutcome& outcome) {
  std::map<std::string, int> replies;
  for (const OperationRecord& each : outcome.operations) {
    if (each.payload != Payload::kReply || each.result <= 0) continue;
    ++replies[common::Format("{} {} {}", each.client, each.status.value_or(0), each.result)];
  }
  return replies;
}

bool IsCrash(const SweepOutcome& outcome) {
  return (outcome.status > 128 && outcome.status <= 128 + SIGRTMAX) ||
         outcome.output.find("Sanitizer: ") != std::string::npos ||
         outcome.output.find(": runtime error: ") != std::string::npos;
}

auto LeftOpen(const SweepOutcome& outcome) {
  return std::count_if(outcome.operations.begin(), outcome.operations.end(),
                       [](const OperationRecord& each) { return each.abandoned; });
}

// Fills in the results that the run left in its folder.
void ReadFiles(const std::string& folder, SweepOutcome* outcome) {
  std::ifstream lines(folder + "/output");
  for (std::string line; std::getline(lines, line);) {
    if (line.find(folder) != std::string::npos) continue;  // differs from run to run
    (line.rfind("zulisim: ", 0) == 0 ? outcome->messages : outcome->output) += line + "\n";
  }
  if (outcome->timedOut) return;  // the recording may be huge
  std::stringstream recording;
  recording << std::ifstream(folder + "/recording").rdbuf();
  if (!recording.str().empty()) outcome->operations = ParseRecording(recording.str()).operations;
}

}  // namespace

SweepRunner::SweepRunner(const std::string& folder) : folder_(folder) {
  // A process whose parent ends becomes a child of this one, so that End finds it.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  sigemptyset(&signals_);
  for (const int number : {SIGCHLD, SIGINT, SIGTERM, SIGHUP, SIGPIPE}) sigaddset(&signals_, number);
  sigprocmask(SIG_BLOCK, &signals_, nullptr);
}

SweepRunner::~SweepRunner() {
  while (!running_.empty()) End(running_.begin()->first);
}

void SweepRunner::Start(std::size_t id, const std::vector<std::string>& words,
                        std::chrono::nanoseconds limit) {
  const Run run{id, folder_ + "/" + std::to_string(++folders_), Now() + limit};
  std::filesystem::create_directory(run.folder);
  std::vector<const char*> arguments = {"zulisim"};
  for (const std::string& word : words) arguments.push_back(word.c_str());
  arguments.push_back(nullptr);
  const pid_t process = fork();
  if (process < 0) throw std::system_error(errno, std::generic_category(), "cannot start a run");
  if (process > 0) {
    running_.emplace(process, run);
    return;
  }
  setsid();
  sigprocmask(SIG_UNBLOCK, &signals_, nullptr);
  setenv("TMPDIR", run.folder.c_str(), 1);
  setenv(kRecordingVariable, (run.folder + "/recording").c_str(), 1);
  dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
  dup2(open((run.folder + "/output").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600),
       STDOUT_FILENO);
  dup2(STDOUT_FILENO, STDERR_FILENO);
  execv("/proc/self/exe", const_cast<char**>(arguments.data()));
  _exit(127);
}

std::optional<SweepOutcome> SweepRunner::Wait() {
  // Wake up at intervals to check the time limits, and because the signals of runs that end at the
  // same moment merge into one.
  const struct timespec interval { 0, 5'000'000 };
  while (signal_ == 0) {
    const int number = sigtimedwait(&signals_, nullptr, &interval);
    if (number > 0 && number != SIGCHLD) signal_ = number;
    for (const auto& [process, run] : running_) {
      SweepOutcome outcome;
      outcome.timedOut = Now() > run.deadline;
      if (outcome.timedOut) kill(process, SIGKILL);
      siginfo_t info{};  // the process stays a zombie, so that its number is not used again
      waitid(P_PID, static_cast<id_t>(process), &info,
             WEXITED | WNOWAIT | (outcome.timedOut ? 0 : WNOHANG));
      if (info.si_pid != process) continue;
      outcome.status = info.si_code == CLD_EXITED ? info.si_status : 128 + info.si_status;
      const Run ended = End(process);
      outcome.id = ended.id;
      ReadFiles(ended.folder, &outcome);
      std::filesystem::remove_all(ended.folder);
      return outcome;
    }
  }
  return std::nullopt;
}

// Ends the run, and then all children that are not runs: an ended run left them behind.
SweepRunner::Run SweepRunner::End(pid_t process) {
  kill(process, SIGKILL);  // it may not have its own session yet
  kill(-process, SIGKILL);
  waitpid(process, nullptr, 0);
  Run run = running_.extract(process).mapped();
  for (bool found = true; found;) {
    found = false;
    std::ifstream children("/proc/thread-self/children");
    for (pid_t child; children >> child;) {
      if (running_.count(child) != 0) continue;
      kill(child, SIGKILL);
      waitpid(child, nullptr, 0);
      found = true;
    }
  }
  return run;
}

Verdict Compare(const SweepOutcome& reference, const SweepOutcome& outcome,
                const std::string& option, bool compareOutput) {
  if (outcome.timedOut) return Verdict::kHung;
  if (IsCrash(outcome)) return Verdict::kCrashed;
  // The run's messages name the fault if it never happened.
  if (outcome.messages.find(option + ": ") != std::string::npos) return Verdict::kNotReached;
  auto replies = Replies(outcome);
  const auto wanted = Replies(reference);
  const bool done = std::all_of(wanted.begin(), wanted.end(), [&](const auto& each) {
    return replies[each.first] >= each.second;
  });
  const bool same =
      outcome.status == reference.status && (!compareOutput || outcome.output == reference.output);
  if (same && !done) return Verdict::kUnnoticed;
  if (LeftOpen(outcome) > LeftOpen(reference)) return Verdict::kLeaked;
  return same ? Verdict::kRecovered : Verdict::kReported;
}

}  // namespace zulisim
