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

// How a client answers a command, or all commands that have no rule.
struct ReplyRule {
  std::string client;
  std::optional<std::uint32_t> command;
  // Only these requests, counted separately for each client and command. Without it, all requests
  // that no other rule of the same command answers.
  std::optional<Occurrences> at;
  std::uint32_t status = 0;
  std::optional<Bytes> body;  // replaces the request's body after the header
  std::optional<Bytes> privateData;
  bool unusual = false;  // allows private data that no firmware sends
  std::chrono::microseconds latency{0};
  bool held = false;    // until Engine::ReleaseReplies
  bool silent = false;  // no reply at all
  std::string origin;   // "--reply kalo:0x10=hold" or "loss.toml:7"
};

// Returns nothing when a firmware can send the reply. Otherwise returns what is wrong and the
// remedy.
std::optional<std::string> ReplyError(const ReplyRule& rule);

// Chooses the reply to a request. A rule with a command precedes one without, and a rule with `at`
// precedes one without. Not thread-safe.
class ReplyPlan {
 public:
  void Add(const ReplyRule& rule);
  // Counts the request. Returns the reply by the rule for it, or nothing when no rule matches.
  std::optional<Reply> Answer(const std::string& client, const Bytes& request);
  std::vector<InstructionCount> InstructionCounts() const;  // in the order of Add

 private:
  struct Entry {
    ReplyRule rule;
    InstructionCount count;
  };
  std::vector<Entry> entries_;
  std::map<std::pair<std::string, std::optional<std::uint32_t>>, std::uint64_t> counts_;
};

}  // namespace zulisim
