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

// Describes how a client answers a command, or all commands without a rule of their own.
struct ReplyRule {
  std::string client;
  std::optional<std::uint32_t> command;
  // The rule applies only to these requests, counted separately for each client and command. If it
  // is missing, the rule applies to all requests to which no other rule for the same command
  // applies.
  std::optional<Occurrences> at;
  std::uint32_t status = 0;
  std::optional<Bytes> body;  // replaces the request's body after the header
  std::optional<Bytes> privateData;
  bool unusual = false;  // allows private data that no firmware sends
  std::chrono::microseconds latency{0};
  bool held = false;    // until Engine::ReleaseReplies
  bool silent = false;  // the client never replies
  std::string origin;   // "--reply kalo:0x10=hold" or "loss.toml:7"
};

// Returns nothing if a firmware can send such a reply. Otherwise returns what is wrong and the
// remedy.
std::optional<std::string> ReplyError(const ReplyRule& rule);

// Chooses the reply to a request. A rule for one command takes precedence over a rule for all
// commands, and a rule with `at` over a rule without. Not thread-safe.
class ReplyPlan {
 public:
  void Add(const ReplyRule& rule);
  // Counts the request. Returns the reply of the rule that applies, or nothing if no rule applies.
  std::optional<Reply> Answer(const std::string& client, const Bytes& request);
  void AddCounts(std::vector<InstructionCount>* counts) const;  // in the order of Add

 private:
  struct Entry {
    ReplyRule rule;
    InstructionCount count;
  };
  std::vector<Entry> entries_;
  std::map<std::pair<std::string, std::optional<std::uint32_t>>, std::uint64_t> counts_;
};

}  // namespace zulisim
