#include "simulator/sweep/sweep_run.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
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
  constexpr int kSignals[] = {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP};
  return std::any_of(std::begin(kSignals), std::end(kSignals),
                     [&](int number) { return outcome.status == 128 + number; }) ||
         outcome.output.find("Sanitizer: ") != std::string::npos ||
         outcome.output.find(": runtime error: ") != std::string::npos;
}

auto LeftOpen(const SweepOutcome& outcome) {
  return std::count_if(outcome.operations.begin(), outcome.operations.end(),
                       [](const OperationRecord& each) { return each.abandoned; });
}

}  // namespace

SweepRun::SweepRun(const RunFunction& run, const std::vector<std::string>& words,
                   const std::string& folder)
    : folder_(folder), start_(Now()) {
  std::filesystem::create_directory(folder_);
  process_ = fork();
  if (process_ < 0) throw std::system_error(errno, std::generic_category(), "cannot start a run");
  setpgid(process_, process_);  // in both processes, because either may be first
  if (process_ > 0) return;
  const int output = open((folder_ + "/output").c_str(), O_RDWR | O_CREAT | O_APPEND, 0600);
  dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), 0);
  dup2(output, 1);
  dup2(output, 2);
  close(output);
  setenv("TMPDIR", folder_.c_str(), 1);
  _exit(run(words, folder_ + "/recording"));
}

SweepRun::~SweepRun() {
  kill(-process_, SIGKILL);
  waitpid(process_, nullptr, 0);
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

bool SweepRun::HasEnded(std::chrono::nanoseconds limit) {
  outcome_.duration = Now() - start_;
  outcome_.timedOut = outcome_.duration > limit;
  if (outcome_.timedOut) kill(-process_, SIGKILL);
  siginfo_t info{};  // the process stays a zombie, so that its number is not used again
  waitid(P_PID, static_cast<id_t>(process_), &info,
         WEXITED | WNOWAIT | (outcome_.timedOut ? 0 : WNOHANG));
  outcome_.status = info.si_code == CLD_EXITED ? info.si_status : 128 + info.si_status;
  return info.si_pid == process_;
}

SweepOutcome SweepRun::TakeOutcome() {
  std::ifstream lines(folder_ + "/output");
  for (std::string line; std::getline(lines, line);) {
    (line.rfind("zulisim: ", 0) == 0 ? outcome_.messages : outcome_.output) += line + "\n";
  }
  std::stringstream recording;
  recording << std::ifstream(folder_ + "/recording").rdbuf();
  if (!recording.str().empty()) outcome_.operations = ParseRecording(recording.str()).operations;
  return std::move(outcome_);
}

Verdict Compare(const SweepOutcome& reference, const SweepOutcome& outcome, bool compareOutput) {
  if (outcome.timedOut) return Verdict::kHung;
  if (IsCrash(outcome)) return Verdict::kCrashed;
  if (outcome.messages.find("did not happen") != std::string::npos) return Verdict::kNotReached;
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
