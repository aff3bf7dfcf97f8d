#pragma once

#include <signal.h>
#include <sys/types.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "simulator/device/operation.h"

namespace zulisim {

// The environment variable with the name of the file for a run's recording.
inline constexpr const char* kRecordingVariable = "ZULISIM_RECORDING";

struct SweepOutcome {
  std::size_t id = 0;     // of SweepRunner::Start
  int status = 0;         // exit status, or 128 plus the number of the signal that ended the run
  bool timedOut = false;  // ended by the time limit
  std::string output;     // standard output and standard error of the program together
  std::string messages;   // of zulisim
  std::vector<OperationRecord> operations;
};

// Runs several copies of this zulisim at once, each in a session and a folder of its own, without
// standard input. When a run ends, the runner ends all processes that the run left behind. The
// constructor blocks SIGINT, SIGTERM, SIGHUP and SIGPIPE. Only for processes with one thread and no
// other child processes.
class SweepRunner {
 public:
  // Creates the folders of the runs below `folder`.
  explicit SweepRunner(const std::string& folder);
  // Ends all runs.
  ~SweepRunner();
  SweepRunner(const SweepRunner&) = delete;
  SweepRunner& operator=(const SweepRunner&) = delete;

  // Starts zulisim with `words`: "run", its options, and the program. Wait ends the run if it takes
  // longer than `limit`. Throws std::system_error.
  void Start(std::size_t id, const std::vector<std::string>& words, std::chrono::nanoseconds limit);
  std::size_t Running() const { return running_.size(); }
  // Waits until a run ends. Returns nothing if a signal arrives first. Call it only while there is
  // a run.
  std::optional<SweepOutcome> Wait();
  // The number of the signal that ended Wait, or 0.
  int Signal() const { return signal_; }

 private:
  struct Run {
    std::size_t id;
    std::string folder;
    std::chrono::nanoseconds deadline;
  };

  Run End(pid_t process);

  const std::string folder_;
  unsigned folders_ = 0;
  std::map<pid_t, Run> running_;  // by process, which is also the process group
  sigset_t signals_{};
  int signal_ = 0;
};

// The result of comparing a run with the reference run, in order of severity.
enum class Verdict { kCrashed, kHung, kUnnoticed, kLeaked, kReported, kRecovered, kNotReached };
inline constexpr const char* kVerdictNames[] = {"crashed",  "hung",      "unnoticed",  "leaked",
                                                "reported", "recovered", "not reached"};

// Compares a run that had the fault `option` with the reference run. Compares only exit statuses
// unless `compareOutput` is set.
Verdict Compare(const SweepOutcome& reference, const SweepOutcome& outcome,
                const std::string& option, bool compareOutput);

}  // namespace zulisim
