#include "simulator/output/transcript.h"

#include <cstdio>

#include "simulator/device/client.h"
#include "simulator/engine/engine.h"

namespace zulisim {
namespace {

constexpr const char* kRed = "\033[31m";
constexpr const char* kYellow = "\033[33m";
constexpr const char* kReset = "\033[0m";

std::string Hex(std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%x", value);
  return text;
}

std::string Padded(std::string text, std::size_t width) {
  if (text.size() < width) text.resize(width, ' ');
  return text;
}

std::string Descriptor(const OperationRecord& record, const TranscriptStyle& style) {
  if (record.connection == 0) return "-";
  if (record.descriptor < 0 || style.connectionNumbers) {
    return "#" + std::to_string(record.connection);
  }
  return "fd " + std::to_string(record.descriptor);
}

std::string Action(const OperationRecord& record) {
  const bool connect = record.operation == Operation::kIoctl && record.request == kConnectRequest;
  return connect ? "connect" : OperationName(record.operation);
}

bool IsTransfer(const OperationRecord& record) {
  return record.operation == Operation::kRead || record.operation == Operation::kWrite;
}

std::string Amount(const OperationRecord& record) {
  if (!IsTransfer(record)) return "";
  const std::string length = std::to_string(record.length) + " bytes";
  const bool whole = record.result < 0 || static_cast<std::size_t>(record.result) == record.length;
  return whole ? length : std::to_string(record.result) + " of " + length;
}

std::string Outcome(const OperationRecord& record) {
  if (record.error != 0) return "failed  " + ErrnoName(record.error);
  if (record.payload == Payload::kConnectRecord) {
    const std::uint32_t version = WordAt(record.bytes, 4).value_or(0) & 0xff;
    return "ok  maximum " + std::to_string(WordAt(record.bytes, 0).value_or(0)) +
           " bytes, version " + std::to_string(version);
  }
  return IsTransfer(record) ? "" : "ok";
}

void Append(std::string* line, const std::string& field) {
  if (field.empty()) return;
  *line += "  " + field;
}

const char* Colour(const OperationRecord& record) {
  if (record.error != 0) return kRed;
  return record.why.empty() ? nullptr : kYellow;
}

}  // namespace

std::string TranscriptLine(const OperationRecord& record, const TranscriptStyle& style) {
  char number[24];
  std::snprintf(number, sizeof(number), "%4llu", static_cast<unsigned long long>(record.sequence));
  std::string line = number;
  Append(&line, Padded(Descriptor(record, style), 5));
  Append(&line, Padded(record.client.empty() ? "-" : record.client, 4));
  Append(&line, Padded(Action(record), 7));
  Append(&line, Outcome(record));
  Append(&line, Amount(record));
  if (record.operation == Operation::kIoctl && record.request != kConnectRequest) {
    Append(&line, "request " + Hex(record.request));
  }
  if (record.payload == Payload::kPrivateData) Append(&line, "private data");
  if (record.commandId) Append(&line, "command " + Hex(*record.commandId));
  if (record.status) Append(&line, "status " + Hex(*record.status));
  if (!record.why.empty()) Append(&line, "(" + record.why + ")");
  while (line.back() == ' ') line.pop_back();
  const char* colour = style.colour ? Colour(record) : nullptr;
  return colour != nullptr ? colour + line + kReset : line;
}

void Transcript::OnOperation(const OperationRecord& record) {
  *out_ << TranscriptLine(record, style_) + "\n" << std::flush;
}

}  // namespace zulisim
