#include "simulator/engine/reply_plan.h"

#include "common/format.h"

namespace zulisim {
namespace {

Reply ReplyTo(const Bytes& request, const ReplyRule& rule) {
  if (rule.silent) return {};
  Reply reply = EchoReply(request, rule.status);
  if (rule.body) {
    reply.message->resize(kHeaderSize);
    reply.message->insert(reply.message->end(), rule.body->begin(), rule.body->end());
  }
  reply.privateData = rule.privateData;
  reply.latency = rule.latency;
  reply.held = rule.held;
  return reply;
}

}  // namespace

std::optional<std::string> ReplyError(const ReplyRule& rule) {
  if (rule.silent &&
      (rule.status != 0 || rule.body || rule.privateData || rule.latency.count() || rule.held)) {
    return "a silent client sends nothing; remove 'silent' or the fields of the reply";
  }
  if (!rule.privateData || rule.unusual) return std::nullopt;
  if (!IsNegative(rule.status)) {
    return "private data needs a negative status, such as 0x80000001; add 'unusual' if this is "
           "intended";
  }
  if (rule.privateData->size() == kPrivateDataSize) return std::nullopt;
  return common::Format("private data has {} bytes, not {}; add 'unusual' if this is intended",
                        kPrivateDataSize, rule.privateData->size());
}

void ReplyPlan::Add(const ReplyRule& rule) {
  const bool isBounded = rule.at && rule.at->times != kForever;
  entries_.push_back({rule, {rule.origin, "request", isBounded ? rule.at->times : 1}});
}

std::optional<Reply> ReplyPlan::Answer(const std::string& client, const Bytes& request) {
  if (entries_.empty()) return std::nullopt;
  const auto command = WordAt(request, kCommandIdOffset);
  const std::uint64_t number = ++counts_[{client, command}];
  Entry* chosen = nullptr;
  int highest = -1;
  for (Entry& entry : entries_) {
    const ReplyRule& rule = entry.rule;
    if (rule.client != client || (rule.command && rule.command != command)) continue;
    ++entry.count.seen;
    if (rule.at && !rule.at->Include(number)) continue;
    const int rank = (rule.command ? 2 : 0) + (rule.at ? 1 : 0);
    if (rank <= highest) continue;
    highest = rank;
    chosen = &entry;
  }
  if (chosen == nullptr) return std::nullopt;
  ++chosen->count.happened;
  return ReplyTo(request, chosen->rule);
}

void ReplyPlan::AddCounts(std::vector<InstructionCount>* counts) const {
  for (const Entry& entry : entries_) counts->push_back(entry.count);
}

}  // namespace zulisim
