#include "simulator/record/replay_device.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>
#include <utility>

#include "simulator/device/hex_lines.h"
#include "simulator/device/raw_call.h"

namespace zulisim {
namespace {

void CopyTo(void* buffer, const Bytes& bytes) {
  if (buffer != nullptr && !bytes.empty()) std::memcpy(buffer, bytes.data(), bytes.size());
}

std::vector<Client> ClientsOf(const Recording& recording) {
  return recording.clients.empty() ? DefaultClients() : recording.clients;
}

}  // namespace

ReplayDevice::ReplayDevice(Recording recording, bool inTime)
    : recording_(std::move(recording)), inTime_(inTime), narrator_(ClientsOf(recording_)) {
  for (std::size_t i = 0; i < recording_.operations.size(); ++i) {
    const RawOperation& raw = recording_.operations[i].raw;
    const bool isOpen = raw.operation == Operation::kOpen;
    (isOpen ? opens_ : streams_[raw.connection]).push_back(i);
  }
}

const RawOperation* ReplayDevice::Compared(Indices* indices, const RawOperation& got) {
  if (lost_) return nullptr;
  if (!indices->empty()) {
    const std::size_t index = indices->front();
    const RecordedOperation& expected = recording_.operations[index];
    if (SameCall(expected.raw, got)) {
      indices->pop_front();
      ++replayed_;
      return &expected.raw;
    }
    divergence_ = Divergence{expected, index + 1, got};
  } else if (recording_.cut) {
    reachedCut_ = true;
  } else {
    divergence_ = Divergence{std::nullopt, 0, got};
  }
  lost_ = true;
  return nullptr;
}

std::uint64_t ReplayDevice::Match(const RawOperation& got) {
  const auto begins = [&](std::uint64_t recorded) {
    const Indices& indices = streams_[recorded];
    return !indices.empty() && SameCall(recording_.operations[indices.front()].raw, got);
  };
  auto found = std::find_if(unmatched_.begin(), unmatched_.end(), begins);
  if (found == unmatched_.end()) found = unmatched_.begin();
  const std::uint64_t recorded = *found;
  unmatched_.erase(found);
  return recorded;
}

const RawOperation* ReplayDevice::Next(const RawOperation& got) {
  if (lost_) return nullptr;
  const auto found = live_.find(got.connection);
  if (found == live_.end()) return Compared(&streams_[0], got);
  // Every live connection has consumed an open, so that one is left to be matched.
  if (!found->second) found->second = Match(got);
  return Compared(&streams_[*found->second], got);
}

Result ReplayDevice::Answer(RawOperation* got, const RawOperation* expected,
                            std::unique_lock<std::mutex>* lock) {
  if (expected != nullptr) {
    got->result = expected->result;
    got->output = expected->output;
    got->note = expected->note;
  } else {
    const bool isClose = got->operation == Operation::kClose;
    got->result = isClose ? Result{} : Result{-1, ENODEV};
    got->note = reachedCut_ ? "behind the cut of the recording" : "the program left the recording";
    if (got->operation == Operation::kIoctl) got->output = got->input;
  }
  lock->unlock();
  if (inTime_ && expected != nullptr) std::this_thread::sleep_for(expected->took);
  got->took = Now() - got->start;
  return got->result;
}

Result ReplayDevice::Open(int flags, unsigned mode, int descriptor) {
  RawOperation got = OpenCall(flags, mode);
  std::unique_lock<std::mutex> lock(mutex_);
  const RawOperation* expected = Compared(&opens_, got);
  if (expected != nullptr && expected->result.value >= 0) {
    got.connection = nextConnection_++;
    live_[got.connection] = std::nullopt;
    unmatched_.push_back(expected->connection);
  }
  const Result result = Answer(&got, expected, &lock);
  narrator_.Tell(got, descriptor);
  return result.value < 0 ? result : Result{static_cast<std::int64_t>(got.connection), 0};
}

Result ReplayDevice::Ioctl(std::uint64_t connection, std::uint32_t request, void* argument) {
  RawOperation got = IoctlCall(connection, request, argument);
  std::unique_lock<std::mutex> lock(mutex_);
  const Result result = Answer(&got, Next(got), &lock);
  CopyTo(argument, got.output);
  narrator_.Tell(got);
  return result;
}

Result ReplayDevice::Read(std::uint64_t connection, void* buffer, std::size_t length) {
  RawOperation got = ReadCall(connection, buffer, length);
  std::unique_lock<std::mutex> lock(mutex_);
  const Result result = Answer(&got, Next(got), &lock);
  CopyTo(buffer, got.output);
  narrator_.Tell(got);
  return result;
}

Result ReplayDevice::Write(std::uint64_t connection, const void* buffer, std::size_t length) {
  RawOperation got = WriteCall(connection, buffer, length);
  std::unique_lock<std::mutex> lock(mutex_);
  const Result result = Answer(&got, Next(got), &lock);
  narrator_.Tell(got);
  return result;
}

Result ReplayDevice::Close(std::uint64_t connection) {
  RawOperation got = CloseCall(connection);
  std::unique_lock<std::mutex> lock(mutex_);
  const RawOperation* expected = Next(got);
  live_.erase(connection);
  const Result result = Answer(&got, expected, &lock);
  narrator_.Tell(got);
  return result;
}

void ReplayDevice::Release(std::uint64_t connection) {
  RawOperation got = GoneCall(connection);
  std::unique_lock<std::mutex> lock(mutex_);
  if (live_.count(connection) == 0) return;
  const RawOperation* expected = Next(got);
  live_.erase(connection);
  Answer(&got, expected, &lock);
  narrator_.Tell(got);
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
    const RecordedOperation& expected = *divergence.expected;
    text = "at operation " + std::to_string(divergence.number) + " (line " +
           std::to_string(expected.line) + ")";
    if (expected.raw.connection != 0) {
      text += " on connection #" + std::to_string(expected.raw.connection);
    }
    text += "\n  expected  " + CallText(expected.raw);
  } else {
    text = "behind its last operation\n  expected  the end of the program";
  }
  text += "\n  got       " +
          (divergence.got ? CallText(*divergence.got) : "the end of the program") + "\n";
  const bool sameKind = divergence.expected && divergence.got &&
                        divergence.expected->raw.operation == divergence.got->operation;
  if (sameKind) {
    text += HexDiff(divergence.expected->raw.input, divergence.got->input);
  }
  return text;
}

}  // namespace zulisim
