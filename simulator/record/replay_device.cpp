#include "simulator/record/replay_device.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>
#include <utility>

#include "common/format.h"
#include "common/hex.h"
#include "common/number.h"
#include "common/text.h"

namespace zulisim {
namespace {

// The flags of an open that reach the device. The other flags affect the process and its file
// table, and differ between the attachments.
constexpr int kDeviceFlags = O_ACCMODE | O_APPEND | O_NONBLOCK | O_SYNC | O_DSYNC;

// Returns true if the program passed the same arguments in both operations.
bool SameArguments(const OperationRecord& a, const OperationRecord& b) {
  if (a.operation != b.operation || a.abandoned != b.abandoned) return false;
  if (a.operation == Operation::kOpen) return ((a.openFlags ^ b.openFlags) & kDeviceFlags) == 0;
  return a.request == b.request && a.length == b.length && a.hasBuffer == b.hasBuffer &&
         a.input == b.input;
}

bool SameResults(const OperationRecord& a, const OperationRecord& b) {
  return a.result == b.result && a.error == b.error && a.output == b.output;
}

// "write 64 bytes, command 0x11"
std::string ArgumentsText(const OperationRecord& record) {
  if (record.abandoned) return "the end of the program without a close";
  std::string text = OperationName(record.operation);
  if (record.operation == Operation::kOpen) text += " " + OpenFlagsText(record.openFlags);
  if (record.operation == Operation::kIoctl) text += " " + common::Hex(record.request);
  if (record.IsTransfer()) text += " " + common::Counted(record.length, "byte");
  if (!record.hasBuffer) text += ", no buffer";
  const bool isWrite = record.operation == Operation::kWrite;
  const auto command = isWrite ? WordAt(record.input, kCommandIdOffset) : std::nullopt;
  if (command) text += ", command " + common::Hex(*command);
  return text;
}

// `expected` is null if the recording has ended, `got` if the program has ended.
std::string DivergenceText(const OperationRecord* expected, const OperationRecord* got) {
  std::string text = "after its last operation\n  expected  the end of the program";
  if (expected != nullptr) {
    text = common::Format("at operation {} (line {})", expected->sequence, expected->sequence + 1);
    if (expected->connection != 0)
      text += common::Format(" on connection #{}", expected->connection);
    text += "\n  expected  " + ArgumentsText(*expected);
  }
  text += "\n  got       " + (got ? ArgumentsText(*got) : "the end of the program") + "\n";
  const bool sameKind =
      expected != nullptr && got != nullptr && expected->operation == got->operation;
  return sameKind ? text + common::HexDiff(expected->input, got->input) : text;
}

}  // namespace

ReplayDevice::ReplayDevice(Recording recording, bool inTime)
    : DecodedDevice(recording.header.clients),
      recording_(std::move(recording)),
      inTime_(inTime),
      done_(recording_.operations.size()) {
  std::map<std::uint64_t, Node*> nodes;
  const OperationRecord* firstOpen = nullptr;
  for (std::size_t i = 0; i < recording_.operations.size(); ++i) {
    const OperationRecord& record = recording_.operations[i];
    const auto found = nodes.find(record.connection);
    if (record.operation == Operation::kOpen) {
      if (firstOpen == nullptr) firstOpen = &record;
      opensRace_ = opensRace_ || record.thread != firstOpen->thread;
      opens_.push_back(i);
      if (record.result >= 0) nodes[record.connection] = &start_;
    } else if (found != nodes.end()) {
      AddToHistory(i, &found->second);
    }
  }
  for (const auto& [connection, node] : nodes) node->isEnd = true;
}

void ReplayDevice::AddToHistory(std::size_t operation, Node** node) const {
  const OperationRecord& record = recording_.operations[operation];
  for (const auto& next : (*node)->next) {
    const OperationRecord& other = recording_.operations[next->operations.front()];
    if (!SameArguments(record, other) || !SameResults(record, other)) continue;
    next->operations.push_back(operation);
    *node = next.get();
    return;
  }
  (*node)->next.push_back(std::make_unique<Node>());
  *node = (*node)->next.back().get();
  (*node)->operations.push_back(operation);
}

std::optional<ReplayDevice::Choice> ReplayDevice::Choose(const Node& from,
                                                         const OperationRecord* got) const {
  std::optional<Choice> chosen;
  for (const auto& next : from.next) {
    for (const std::size_t operation : next->operations) {
      const OperationRecord& record = recording_.operations[operation];
      if (got != nullptr && !SameArguments(record, *got)) break;
      if (chosen && chosen->operation < operation) break;
      if (!opensRace_ && opened_.count(record.connection) == 0) continue;
      chosen = {next.get(), operation};
      break;
    }
  }
  return chosen;
}

void ReplayDevice::Diverge(std::optional<std::size_t> expected, const OperationRecord* got,
                           bool mayBeCut) {
  lost_ = true;
  closed_.notify_all();
  reachedCut_ = recording_.cut && (mayBeCut || !expected);
  if (reachedCut_) return;
  const OperationRecord* const record = expected ? &recording_.operations[*expected] : nullptr;
  divergence_ = DivergenceText(record, got);
}

// Returns true if the read was still waiting when the program or the run ended.
bool ReplayDevice::EndsAfterClose(const Node& node, const OperationRecord& got) const {
  if (got.operation != Operation::kRead || Choose(node, &got)) return false;
  return std::any_of(node.next.begin(), node.next.end(), [&](const auto& next) {
    return !next->operations.empty() && Choose(*next, &got) &&
           recording_.operations[next->operations.front()].operation == Operation::kClose;
  });
}

const OperationRecord* ReplayDevice::Next(const OperationRecord& got, Live* live,
                                          std::unique_lock<std::mutex>* lock) {
  closed_.wait(*lock, [&] { return lost_ || !EndsAfterClose(*live->node, got); });
  if (lost_) return nullptr;
  const auto choice = Choose(*live->node, &got);
  if (!choice) {
    const auto expected = Choose(*live->node, nullptr);
    Diverge(expected ? std::optional(expected->operation) : std::nullopt, &got, live->node->isEnd);
    return nullptr;
  }
  std::deque<std::size_t>* const operations = &choice->node->operations;
  operations->erase(std::find(operations->begin(), operations->end(), choice->operation));
  live->node = choice->node;
  done_[choice->operation] = true;
  return &recording_.operations[choice->operation];
}

const OperationRecord* ReplayDevice::NextOpen(OperationRecord* got) {
  if (lost_) return nullptr;
  const auto next = opens_.empty() ? std::nullopt : std::optional(opens_.front());
  if (!next || !SameArguments(recording_.operations[*next], *got)) {
    Diverge(next, got, false);
    return nullptr;
  }
  const OperationRecord* const expected = &recording_.operations[*next];
  done_[*next] = true;
  opens_.pop_front();
  if (expected->result >= 0) {
    got->connection = nextConnection_++;
    live_[got->connection] = {&start_};
    opened_.insert(expected->connection);
  }
  return expected;
}

// A recorded read gives the recorded result even when it is non-blocking.
bool ReplayDevice::Execute(OperationRecord* got, void* target) {
  std::unique_lock<std::mutex> lock(mutex_);
  const bool isOpen = got->operation == Operation::kOpen;
  const bool isClose = got->operation == Operation::kClose;
  const auto live = live_.find(got->connection);
  if (!isOpen && live == live_.end()) {
    got->result = -1;
    got->error = EBADF;
    return !got->abandoned;
  }
  if (got->abandoned && live->second.closed) return false;
  const OperationRecord* const expected = isOpen ? NextOpen(got) : Next(*got, &live->second, &lock);
  if (isClose) live->second.closed = true;
  if (isClose) closed_.notify_all();
  if (expected == nullptr) {
    if (!isClose) {
      got->result = -1;
      got->error = ENODEV;
    }
    got->why = reachedCut_ ? "after the place where the recording is cut"
                           : "the program left the recording";
    if (got->operation == Operation::kIoctl) got->output = got->input;
    return true;
  }
  got->result = expected->result;
  got->error = expected->error;
  got->output = expected->output;
  got->why = expected->why;
  lock.unlock();
  if (inTime_) std::this_thread::sleep_for(expected->end - expected->start);
  if (target != nullptr && !got->output.empty()) {
    std::memcpy(target, got->output.data(), got->output.size());
  }
  return true;
}

void ReplayDevice::End() {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto missing = std::find(done_.begin(), done_.end(), false);
  if (lost_ || missing == done_.end()) return;
  Diverge(missing - done_.begin(), nullptr, false);
}

std::string ReplayDevice::Divergence() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return divergence_;
}

bool ReplayDevice::ReachedCut() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return reachedCut_;
}

}  // namespace zulisim
