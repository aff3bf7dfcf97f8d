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

// Sets how a client answers a command, or all commands without a rule.
struct ReplyRule {
  std::string client;
  std::optional<std::uint32_t> command;
  // Only these requests, which count separately for each client and command. Without it, all
  // requests that no other rule of the same command answers.
  std::optional<Occurrences> at;
  std::uint32_t status = 0;
  std::optional<Bytes> body;  // replaces the request's body after the header
  std::optional<Bytes> privateData;
  bool unusual = false;  // allows private data that no firmware sends
  std::chrono::microseconds latency{0};
  bool held = false;    // until it is released
  bool silent = false;  // no reply at all
  std::string origin;   // as for a fault
};

// Nothing when a firmware can send the reply, else the reason why not and the remedy.
std::optional<std::string> ReplyError(const ReplyRule& rule);

// The reply rules. A rule for a command has precedence over one for all commands, then a rule with
// `at` over one without. Not thread-safe.
class ReplyPlan {
 public:
  void Add(const ReplyRule& rule);
  // Counts the request. Returns the reply of its rule, if there is one.
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
