#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "simulator/device/operation.h"

namespace zulisim {

struct SweepOutcome {
  int status = 0;         // exit status of 'zulisim run'
  bool timedOut = false;  // ended by the time limit
  std::string output;     // of the program, standard output and standard error together
  std::string messages;   // of zulisim
  std::vector<OperationRecord> operations;
  std::chrono::nanoseconds duration{};
};

// Performs 'zulisim' with the words of a command line, writes the operations to the recording
// `file`, and returns the exit status.
using RunFunction =
    std::function<int(const std::vector<std::string>& words, const std::string& file)>;

// One run, in a process group and a folder of its own. The program's standard input is empty. For
// processes with one thread only.
class SweepRun {
 public:
  // Starts a child process, which calls `run`. Creates `folder`, which the destructor removes.
  // Throws std::system_error.
  SweepRun(const RunFunction& run, const std::vector<std::string>& words,
           const std::string& folder);
  // Ends the whole process group.
  ~SweepRun();
  SweepRun(const SweepRun&) = delete;
  SweepRun& operator=(const SweepRun&) = delete;

  // Returns true when the run has ended by itself or by this call, because it exceeded `limit`.
  bool HasEnded(std::chrono::nanoseconds limit);
  // Call it once, after HasEnded has returned true.
  SweepOutcome TakeOutcome();

 private:
  const std::string folder_;
  const std::chrono::nanoseconds start_;
  pid_t process_ = -1;  // also the process group
  SweepOutcome outcome_;
};

// How a run compares with the reference run, in order of severity.
enum class Verdict { kCrashed, kHung, kUnnoticed, kLeaked, kReported, kRecovered, kNotReached };
inline constexpr const char* kVerdictNames[] = {"crashed",  "hung",      "unnoticed",  "leaked",
                                                "reported", "recovered", "not reached"};

// Compares only exit statuses unless `compareOutput`.
Verdict Compare(const SweepOutcome& reference, const SweepOutcome& outcome, bool compareOutput);

}  // namespace zulisim
