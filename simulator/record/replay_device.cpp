#include "simulator/record/replay_device.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>
#include <utility>

#include "common/hex.h"
#include "common/number.h"
#include "common/text.h"

namespace zulisim {
namespace {

// What an open asks of a device. The rest is for the process and its file table, and a kernel keeps
// some of it to itself, so that it depends on how the program is attached.
constexpr int kDeviceFlags = O_ACCMODE | O_APPEND | O_NONBLOCK | O_SYNC | O_DSYNC;

// True when a program that passes what `b` passes does what it did in `a`.
bool SameArguments(const OperationRecord& a, const OperationRecord& b) {
  if (a.operation != b.operation || a.abandoned != b.abandoned) return false;
  if (a.operation == Operation::kOpen) return ((a.openFlags ^ b.openFlags) & kDeviceFlags) == 0;
  return a.request == b.request && a.length == b.length && a.hasBuffer == b.hasBuffer &&
         a.input == b.input;
}

// "write 64 bytes, command 0x11"
std::string ArgumentsText(const OperationRecord& record) {
  if (record.abandoned) return "the end of the program without a close";
  std::string text = OperationName(record.operation);
  if (record.operation == Operation::kOpen) {
    text += " " + OpenFlagsText(record.openFlags);
    if (OpenMode(record) != 0) text += ", mode " + common::Hex(OpenMode(record));
  }
  if (record.operation == Operation::kIoctl) text += " " + common::Hex(record.request);
  if (record.IsTransfer()) text += " " + common::Counted(record.length, "byte");
  if (!record.hasBuffer) text += ", no buffer";
  const bool isWrite = record.operation == Operation::kWrite;
  const auto command = isWrite ? WordAt(record.input, kCommandIdOffset) : std::nullopt;
  if (command) text += ", command " + common::Hex(*command);
  return text;
}

}  // namespace

ReplayDevice::ReplayDevice(Recording recording, bool inTime)
    : DecodedDevice(recording.header.clients), recording_(std::move(recording)), inTime_(inTime) {
  for (std::size_t i = 0; i < recording_.operations.size(); ++i) {
    const OperationRecord& record = recording_.operations[i];
    const bool isOpen = record.operation == Operation::kOpen;
    (isOpen ? opens_ : streams_[record.connection]).push_back(i);
  }
}

const OperationRecord* ReplayDevice::Compared(Indices* indices, const OperationRecord& got) {
  if (lost_) return nullptr;
  if (!indices->empty()) {
    const std::size_t index = indices->front();
    const OperationRecord& expected = recording_.operations[index];
    if (SameArguments(expected, got)) {
      indices->pop_front();
      ++replayed_;
      return &expected;
    }
    divergence_ = Divergence{expected, index + 1, got};
  } else if (recording_.cut) {
    reachedCut_ = true;
  } else {
    divergence_ = Divergence{std::nullopt, 0, got};
  }
  lost_ = true;
  closed_.notify_all();
  return nullptr;
}

std::uint64_t ReplayDevice::Match(const OperationRecord& got) {
  const auto begins = [&](std::uint64_t recorded) {
    const Indices& indices = streams_[recorded];
    return !indices.empty() && SameArguments(recording_.operations[indices.front()], got);
  };
  auto found = std::find_if(unmatched_.begin(), unmatched_.end(), begins);
  if (found == unmatched_.end()) found = unmatched_.begin();
  const std::uint64_t recorded = *found;
  unmatched_.erase(found);
  return recorded;
}

// A read that was waiting when its program or the run ended.
bool ReplayDevice::EndsAfterClose(const Indices& indices, const OperationRecord& got) const {
  if (indices.size() < 2 || got.operation != Operation::kRead) return false;
  const OperationRecord& first = recording_.operations[indices[0]];
  return first.operation == Operation::kClose &&
         SameArguments(recording_.operations[indices[1]], got);
}

const OperationRecord* ReplayDevice::Next(const OperationRecord& got,
                                          std::unique_lock<std::mutex>* lock) {
  if (lost_) return nullptr;
  const auto found = live_.find(got.connection);
  if (found == live_.end()) return Compared(&streams_[0], got);
  // Every live connection has consumed an open, so that one is left to be matched.
  if (!found->second) found->second = Match(got);
  Indices* indices = &streams_[*found->second];
  closed_.wait(*lock, [&] { return lost_ || !EndsAfterClose(*indices, got); });
  return Compared(indices, got);
}

Result ReplayDevice::Complete(OperationRecord* got, const OperationRecord* expected,
                              std::unique_lock<std::mutex>* lock) {
  if (expected != nullptr) {
    got->result = expected->result;
    got->error = expected->error;
    got->output = expected->output;
    got->why = expected->why;
  } else {
    if (got->operation != Operation::kClose) {
      got->result = -1;
      got->error = ENODEV;
    }
    got->why = reachedCut_ ? "after the cut of the recording" : "the program left the recording";
    if (got->operation == Operation::kIoctl) got->output = got->input;
  }
  const Result result{got->result, got->error};
  lock->unlock();
  if (inTime_ && expected != nullptr) {
    std::this_thread::sleep_for(expected->end - expected->start);
  }
  got->end = Now();
  return result;
}

Result ReplayDevice::Open(int flags, unsigned mode, int descriptor) {
  OperationRecord got = BeginOpen(flags, mode);
  std::unique_lock<std::mutex> lock(mutex_);
  const OperationRecord* expected = Compared(&opens_, got);
  if (expected != nullptr && expected->result >= 0) {
    got.connection = nextConnection_++;
    live_[got.connection] = std::nullopt;
    unmatched_.push_back(expected->connection);
  }
  got.descriptor = descriptor;
  const Result result = Complete(&got, expected, &lock);
  Publish(got);
  return result.value < 0 ? result : Result{static_cast<std::int64_t>(got.connection), 0};
}

Result ReplayDevice::Ioctl(std::uint64_t connection, std::uint32_t request, void* argument) {
  OperationRecord got = BeginIoctl(connection, request, argument);
  return Transfer(&got, argument);
}

// A recorded read does what it did, whether it may wait or not.
Result ReplayDevice::Read(std::uint64_t connection, void* buffer, std::size_t length, bool) {
  OperationRecord got = BeginRead(connection, buffer, length);
  return Transfer(&got, buffer);
}

Result ReplayDevice::Write(std::uint64_t connection, const void* buffer, std::size_t length) {
  OperationRecord got = BeginWrite(connection, buffer, length);
  return Transfer(&got, nullptr);
}

Result ReplayDevice::Transfer(OperationRecord* got, void* target) {
  std::unique_lock<std::mutex> lock(mutex_);
  const OperationRecord* expected = Next(*got, &lock);
  const Result result = Complete(got, expected, &lock);
  if (target != nullptr && !got->output.empty()) {
    std::memcpy(target, got->output.data(), got->output.size());
  }
  Publish(std::move(*got));
  return result;
}

std::optional<std::chrono::nanoseconds> ReplayDevice::ReadableAt(std::uint64_t connection) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto found = live_.find(connection);
  if (found == live_.end()) return std::nullopt;
  if (lost_) return std::chrono::nanoseconds(0);
  const auto stream = found->second ? streams_.find(*found->second) : streams_.end();
  if (stream == streams_.end() || stream->second.empty()) return std::nullopt;
  const OperationRecord& next = recording_.operations[stream->second.front()];
  if (next.operation != Operation::kRead) return std::nullopt;
  return std::chrono::nanoseconds(0);
}

Result ReplayDevice::Close(std::uint64_t connection, CloseReason reason) {
  OperationRecord got = BeginClose(connection, reason);
  std::unique_lock<std::mutex> lock(mutex_);
  if (got.abandoned && live_.count(connection) == 0) return {};
  const OperationRecord* expected = Next(got, &lock);
  live_.erase(connection);
  closed_.notify_all();
  const Result result = Complete(&got, expected, &lock);
  Publish(std::move(got));
  return result;
}

void ReplayDevice::End() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (lost_) return;
  std::size_t least = recording_.operations.size();
  if (!opens_.empty()) least = opens_.front();
  for (const auto& [recorded, indices] : streams_) {
    if (!indices.empty()) least = std::min(least, indices.front());
  }
  if (least == recording_.operations.size()) return;
  divergence_ = Divergence{recording_.operations[least], least + 1, std::nullopt};
  lost_ = true;
}

std::optional<ReplayDevice::Divergence> ReplayDevice::FirstDivergence() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return divergence_;
}

bool ReplayDevice::ReachedCut() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return reachedCut_;
}

std::size_t ReplayDevice::Replayed() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return replayed_;
}

std::string DivergenceText(const ReplayDevice::Divergence& divergence) {
  std::string text;
  if (divergence.expected) {
    const OperationRecord& expected = *divergence.expected;
    text = "at operation " + std::to_string(divergence.number) + " (line " +
           std::to_string(divergence.number + 1) + ")";
    if (expected.connection != 0) {
      text += " on connection #" + std::to_string(expected.connection);
    }
    text += "\n  expected  " + ArgumentsText(expected);
  } else {
    text = "after its last operation\n  expected  the end of the program";
  }
  text += "\n  got       " +
          (divergence.got ? ArgumentsText(*divergence.got) : "the end of the program") + "\n";
  const bool sameKind = divergence.expected && divergence.got &&
                        divergence.expected->operation == divergence.got->operation;
  if (sameKind) {
    text += common::HexDiff(divergence.expected->input, divergence.got->input);
  }
  return text;
}

}  // namespace zulisim
