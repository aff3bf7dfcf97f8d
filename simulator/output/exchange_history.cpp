#include "simulator/output/exchange_history.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "simulator/engine/engine.h"

namespace zulisim {
namespace {

constexpr int kMostLosses = 5;  // the library gives up a transfer after so many

using Kind = StoryStep::Kind;

bool IsConnect(const OperationRecord& record) {
  return record.operation == Operation::kIoctl && record.request == kConnectRequest;
}

std::string Size(std::size_t bytes) {
  return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
}

std::string Label(const OperationRecord& record) {
  std::string label = OperationName(record.operation);
  if (IsConnect(record)) label = "connect" + (record.client.empty() ? "" : " to " + record.client);
  if (record.operation == Operation::kIoctl && !IsConnect(record)) {
    label += " " + StoryHex(record.request);
  }
  const bool isTransfer =
      record.operation == Operation::kRead || record.operation == Operation::kWrite;
  if (record.payload == Payload::kPrivateData) label = "private data";
  if (record.payload == Payload::kReply) label = "reply";
  if (record.payload == Payload::kRequest) label = "request";
  if (record.commandId) label += " " + StoryHex(*record.commandId);
  const bool asks = record.operation == Operation::kRead && record.error != 0;
  if (isTransfer) label += asks ? " of up to " : ", ";
  if (isTransfer) {
    label += Size(record.error == 0 ? static_cast<std::size_t>(record.result) : record.length);
  }
  if (record.status) label += ", status " + StoryHex(*record.status);
  if (record.error != 0) label += ": " + ErrnoName(record.error);
  return label;
}

bool IsNegative(std::uint32_t status) { return (status & 0x80000000) != 0; }

}  // namespace

std::string StoryHex(std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%x", value);
  return text;
}

std::vector<StoryStep> Story::Tell(const OperationRecord& record, std::size_t index) {
  steps_.clear();
  if (record.operation == Operation::kWrite) BeginCommand(record);
  const auto found = commands_.find(record.client);
  const bool readsPrivate = record.operation == Operation::kRead &&
                            (record.payload == Payload::kPrivateData || record.error != 0);
  if (found != commands_.end() && found->second.status && !readsPrivate) {
    TellDriver(record.client, "reply, status " + StoryHex(*found->second.status), false);
  }
  TellOperation(record);
  TellConsequence(record);
  for (StoryStep& step : steps_) step.at = index;
  return std::move(steps_);
}

void Story::TellDriver(const std::string& client, const std::string& label, bool failed) {
  StoryStep step;
  step.kind = Kind::kToDriver;
  step.inferred = true;
  step.remarkable = step.failed = failed;
  step.label = label;
  steps_.push_back(std::move(step));
  commands_.erase(client);
}

void Story::BeginCommand(const OperationRecord& record) {
  const auto found = commands_.find(record.client);
  if (found != commands_.end()) {
    Command* earlier = &found->second;
    if (earlier->lostInWrite) {  // it is sent again
      if (record.commandId) earlier->id = record.commandId;
      return;
    }
    if (earlier->status) {
      TellDriver(record.client, "reply, status " + StoryHex(*earlier->status), false);
    }
  }
  commands_[record.client] = {record.commandId, std::nullopt, 0, false};
  StoryStep step;
  step.kind = Kind::kToLibrary;
  step.inferred = true;
  step.beginsCommand = true;
  step.label = record.commandId ? "command " + StoryHex(*record.commandId) : "a command";
  step.label += ", " + Size(record.length);
  steps_.push_back(std::move(step));
}

void Story::TellOperation(const OperationRecord& record) {
  StoryStep step;
  const bool delivers = record.operation == Operation::kRead && record.error == 0;
  step.kind = delivers ? Kind::kFromEngine : Kind::kToEngine;
  step.label = Label(record);
  step.remark = record.why;
  step.remarkable = record.error != 0 || !record.why.empty();
  step.isOperation = true;
  step.failed = record.error != 0;
  step.negative = record.status && IsNegative(*record.status);
  steps_.push_back(std::move(step));
}

void Story::Fail(const std::string& client, const std::string& why) {
  if (commands_.count(client) > 0) TellDriver(client, "failed: " + why, true);
}

void Story::TellConsequence(const OperationRecord& record) {
  const bool isTransfer =
      record.operation == Operation::kRead || record.operation == Operation::kWrite;
  if ((record.operation == Operation::kOpen || IsConnect(record)) && record.error != 0) {
    for (const std::string& client : lost_) Fail(client, "the device cannot be reopened");
    lost_.clear();
    return;
  }
  const auto found = commands_.find(record.client);
  if (record.error == ENODEV) {
    if (std::find(lost_.begin(), lost_.end(), record.client) == lost_.end()) {
      lost_.push_back(record.client);
    }
    if (isTransfer && found != commands_.end()) {
      ++found->second.losses;
      found->second.lostInWrite = record.operation == Operation::kWrite;
    }
    return;
  }
  if (IsConnect(record) && record.error == 0) {
    const auto lost = std::find(lost_.begin(), lost_.end(), record.client);
    if (lost == lost_.end()) return;
    lost_.erase(lost);
    StoryStep step;
    step.remarkable = true;
    step.label = "reconnected to " + record.client + " as #" + std::to_string(record.connection);
    steps_.push_back(std::move(step));
    if (found != commands_.end() && found->second.losses >= kMostLosses) {
      Fail(record.client, "given up after five reconnects");
    }
    return;
  }
  if (!isTransfer || found == commands_.end()) return;
  if (record.error != 0) return Fail(record.client, ErrnoName(record.error));
  found->second.losses = 0;
  found->second.lostInWrite = false;
  if (record.payload == Payload::kPrivateData) {
    TellDriver(record.client, "reply and private data", false);
  } else if (record.payload == Payload::kReply) {
    const std::uint32_t status = record.status.value_or(0);
    if (IsNegative(status)) {
      found->second.status = status;
    } else {
      TellDriver(record.client, "reply, status " + StoryHex(status), false);
    }
  }
}

}  // namespace zulisim
