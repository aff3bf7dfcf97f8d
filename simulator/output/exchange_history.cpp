#include "simulator/output/exchange_history.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "common/number.h"
#include "common/text.h"

namespace zulisim {
namespace {

constexpr int kMostLosses = 5;  // the library gives up a transfer after so many

using Kind = DiagramStep::Kind;

// The engine does not look into a request that it refuses, but the driver's command is in it.
std::optional<std::uint32_t> CommandOf(const OperationRecord& record) {
  const bool refused = record.operation == Operation::kWrite && !record.commandId;
  return refused ? WordAt(record.input, kCommandIdOffset) : record.commandId;
}

std::string CommandText(const std::optional<std::uint32_t>& command) {
  return command ? "command " + common::Hex(*command) : "a command";
}

std::string Label(const OperationRecord& record) {
  std::string label = OperationName(record.operation);
  if (record.IsConnect()) label = "connect" + (record.client.empty() ? "" : " to " + record.client);
  if (record.operation == Operation::kIoctl && !record.IsConnect()) {
    label += " " + common::Hex(record.request);
  }
  if (record.payload == Payload::kPrivateData) label = "private data";
  if (record.payload == Payload::kReply) label = "reply";
  if (record.payload == Payload::kRequest) label = "request";
  if (const auto command = CommandOf(record)) label += " " + common::Hex(*command);
  const bool asks = record.operation == Operation::kRead && record.error != 0;
  if (record.IsTransfer()) label += asks ? " of up to " : ", ";
  if (record.IsTransfer()) {
    label += common::Counted(
        record.error == 0 ? static_cast<std::size_t>(record.result) : record.length, "byte");
  }
  if (record.status) label += ", status " + common::Hex(*record.status);
  if (record.error != 0) label += ": " + ErrnoName(record.error);
  return label;
}

}  // namespace

std::vector<DiagramStep> ExchangeHistory::Add(const OperationRecord& record) {
  steps_.clear();
  if (record.operation == Operation::kWrite) BeginCommand(record);
  const auto found = commands_.find(record.client);
  const bool readsPrivate = record.operation == Operation::kRead &&
                            (record.payload == Payload::kPrivateData || record.error != 0);
  if (found != commands_.end() && found->second.status && !readsPrivate) {
    AddToDriver(record.client, "reply, status " + common::Hex(*found->second.status), false);
  }
  AddOperation(record);
  AddConsequence(record);
  return std::move(steps_);
}

void ExchangeHistory::AddToDriver(const std::string& client, const std::string& label,
                                  bool failed) {
  DiagramStep step;
  step.kind = Kind::kToDriver;
  step.inferred = true;
  step.remarkable = step.failed = failed;
  step.label = label;
  steps_.push_back(std::move(step));
  commands_.erase(client);
}

void ExchangeHistory::BeginCommand(const OperationRecord& record) {
  const auto found = commands_.find(record.client);
  if (found != commands_.end()) {
    Command* earlier = &found->second;
    if (earlier->lostInWrite) return;  // it is sent again
    if (earlier->status) {
      AddToDriver(record.client, "reply, status " + common::Hex(*earlier->status), false);
    }
  }
  commands_[record.client] = {CommandOf(record), std::nullopt, 0, false};
  DiagramStep step;
  step.kind = Kind::kToLibrary;
  step.inferred = true;
  step.beginsCommand = true;
  step.label = CommandText(CommandOf(record)) + ", " + common::Counted(record.length, "byte");
  steps_.push_back(std::move(step));
}

void ExchangeHistory::AddOperation(const OperationRecord& record) {
  DiagramStep step;
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

bool ExchangeHistory::Fail(const std::string& client, const std::string& why) {
  const auto found = commands_.find(client);
  if (found == commands_.end()) return false;
  AddToDriver(client, CommandText(found->second.id) + " failed: " + why, true);
  return true;
}

void ExchangeHistory::FailOpening(const OperationRecord& record) {
  bool told = false;
  for (const std::string& client : lost_) {
    told = Fail(client, "the device cannot be reopened") || told;
  }
  lost_.clear();
  if (told) return;
  const std::string what = record.IsConnect() ? "connecting" : "opening";
  AddToDriver(record.client, what + " failed: " + ErrnoName(record.error), true);
}

void ExchangeHistory::AddConsequence(const OperationRecord& record) {
  if ((record.operation == Operation::kOpen || record.IsConnect()) && record.error != 0) {
    return FailOpening(record);
  }
  const auto found = commands_.find(record.client);
  if (record.error == ENODEV) {
    if (std::find(lost_.begin(), lost_.end(), record.client) == lost_.end()) {
      lost_.push_back(record.client);
    }
    if (record.IsTransfer() && found != commands_.end()) {
      ++found->second.losses;
      found->second.lostInWrite = record.operation == Operation::kWrite;
    }
    return;
  }
  if (record.IsConnect() && record.error == 0) {
    const auto lost = std::find(lost_.begin(), lost_.end(), record.client);
    if (lost == lost_.end()) return;
    lost_.erase(lost);
    DiagramStep step;
    step.remarkable = true;
    step.label = "reconnected to " + record.client + " as #" + std::to_string(record.connection);
    steps_.push_back(std::move(step));
    if (found != commands_.end() && found->second.losses >= kMostLosses) {
      Fail(record.client, "given up after five reconnects");
    }
    return;
  }
  if (!record.IsTransfer() || found == commands_.end()) return;
  if (record.error != 0) {
    Fail(record.client, ErrnoName(record.error));
    return;
  }
  found->second.losses = 0;
  found->second.lostInWrite = false;
  if (record.payload == Payload::kPrivateData) {
    AddToDriver(record.client, "reply and private data", false);
  } else if (record.payload == Payload::kReply) {
    const std::uint32_t status = record.status.value_or(0);
    if (IsNegative(status)) {
      found->second.status = status;
    } else {
      AddToDriver(record.client, "reply, status " + common::Hex(status), false);
    }
  }
}

}  // namespace zulisim
