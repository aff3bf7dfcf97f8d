#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include <nlohmann/json_fwd.hpp>

#include "simulator/device/operation.h"
#include "simulator/output/output_writer.h"

namespace zulisim {

// Counts a run's operations by kind, its failures by errno, and its commands with their latency,
// which is the time from the start of a request's write to the end of the read of its reply.
class RunSummary {
 public:
  void Add(const OperationRecord& record);
  void Add(const LogLine& line) { failedCalls_ += line.IsFailure() ? 1 : 0; }

  // A few lines, each with its end.
  std::string Text() const;
  // An object with the members "operations", "failures", "commands", "negative_statuses",
  // "failed_calls" (lines of the log), "bytes_sent", "bytes_received" and "seconds".
  nlohmann::ordered_json Json() const;

 private:
  struct Command {
    std::uint64_t count = 0;
    std::uint64_t replies = 0;
    std::uint64_t failures = 0;  // reads and writes that failed
    std::uint64_t negative = 0;  // replies with a negative status
    std::chrono::nanoseconds shortest{}, longest{}, total{};
  };
  struct Request {
    Command* command = nullptr;
    std::chrono::nanoseconds start{};
  };

  double Seconds() const { return std::chrono::duration<double>(end_ - start_).count(); }

  std::array<std::uint64_t, kOperationCount> operations_{};
  std::map<int, std::uint64_t> failures_;                            // by errno
  std::map<std::pair<std::string, std::string>, Command> commands_;  // by client and number
  std::map<std::uint64_t, Request> requests_;  // the last one of each connection
  std::uint64_t negative_ = 0, failedCalls_ = 0;
  std::int64_t sent_ = 0, received_ = 0;
  std::chrono::nanoseconds start_{}, end_{};
};

}  // namespace zulisim
