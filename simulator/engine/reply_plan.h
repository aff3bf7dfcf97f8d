#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "simulator/device/client.h"
#include "simulator/engine/fault.h"

namespace zulisim {

// How a client answers a command, or all commands that have no rule of their own.
struct ReplyRule {
  std::string client;
  std::optional<std::uint32_t> command;
  // Only these requests, counted for each client and command by themselves; without it, all that no
  // other rule of the same command answers.
  std::optional<Occurrences> at;
  std::uint32_t status = 0;
  std::optional<Bytes> body;  // replaces the request's body after the header
  std::optional<Bytes> privateData;
  bool unusual = false;  // private data that no firmware sends is meant
  std::chrono::microseconds latency{0};
  bool held = false;    // until it is released
  bool silent = false;  // no reply at all
  std::string origin;   // as for a fault
};

// Nothing when a firmware can send what `rule` says, else what is wrong and what would be right.
std::optional<std::string> ReplyError(const ReplyRule& rule);

// Reply rules; what is said of a command goes before what is said of all others, and what is said
// of some requests before what is said of the rest. Not thread-safe.
class ReplyPlan {
 public:
  void Add(const ReplyRule& rule);
  // Counts the request. The reply of the rule that is for it, if there is one.
  std::optional<Reply> Answer(const std::string& client, const Bytes& request);
  std::vector<Tally> Tallies() const;  // in the order of Add

 private:
  struct Entry {
    ReplyRule rule;
    Tally tally;
  };
  std::vector<Entry> entries_;
  std::map<std::pair<std::string, std::optional<std::uint32_t>>, std::uint64_t> counts_;
};

}  // namespace zulisim
