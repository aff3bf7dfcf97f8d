#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "simulator/device/operation.h"

namespace zulisim {

// Counts a run's operations by kind and its failures by errno, and measures the latency of its
// commands. The latency is the time from the start of a request's write to the end of the read of
// its reply.
class RunSummary {
 public:
  RunSummary();
  void Add(const OperationRecord& record);

  // Returns a few lines of text. The last one has no line end.
  std::string Text() const;
  // Returns a JSON object with the members "seconds", "operations", "failures" and "commands".
  nlohmann::ordered_json Json() const;

 private:
  struct Command {
    std::int64_t requests = 0;
    std::int64_t replies = 0;
    std::int64_t failures = 0;                          // reads and writes that failed
    std::int64_t negative = 0;                          // replies with a negative status
    std::int64_t shortest = 0, longest = 0, total = 0;  // latency in microseconds
  };
  struct Request {
    Command* command = nullptr;
    std::chrono::nanoseconds start{};
  };

  double Seconds() const { return std::chrono::duration<double>(end_ - start_).count(); }

  std::map<std::string, std::int64_t> operations_;  // by name
  std::map<std::string, std::int64_t> failures_;    // by name of the errno
  std::map<std::string, Command> commands_;         // by client and number: "KALO 0x10"
  std::map<std::uint64_t, Request> requests_;       // the last request of each connection
  std::chrono::nanoseconds start_{}, end_{};
};

}  // namespace zulisim
