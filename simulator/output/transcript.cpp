#include "simulator/output/transcript.h"

#include <cstdio>

#include "common/number.h"
#include "common/text.h"

namespace zulisim {
namespace {

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

std::string Amount(const OperationRecord& record) {
  if (!record.IsTransfer()) return "";
  const std::string length = std::to_string(record.length) + " bytes";
  const bool whole = record.result < 0 || static_cast<std::size_t>(record.result) == record.length;
  return whole ? length : std::to_string(record.result) + " of " + length;
}

std::string ResultText(const OperationRecord& record) {
  if (record.error != 0) return "failed  " + ErrnoName(record.error);
  if (record.payload == Payload::kConnectRecord) {
    const std::uint32_t version = WordAt(record.output, 4).value_or(0) & 0xff;
    return "ok  maximum " + std::to_string(WordAt(record.output, 0).value_or(0)) +
           " bytes, version " + std::to_string(version);
  }
  return record.IsTransfer() ? "" : "ok";
}

void Append(std::string* line, const std::string& field) {
  if (field.empty()) return;
  *line += "  " + field;
}

}  // namespace

std::string TranscriptLine(const OperationRecord& record, const TranscriptStyle& style) {
  char number[24];
  std::snprintf(number, sizeof(number), "%4llu", static_cast<unsigned long long>(record.sequence));
  std::string line = number;
  Append(&line, Padded(Descriptor(record, style), 5));
  Append(&line, Padded(record.client.empty() ? "-" : common::Printable(record.client), 4));
  Append(&line, Padded(record.IsConnect() ? "connect" : OperationName(record.operation), 7));
  Append(&line, ResultText(record));
  Append(&line, Amount(record));
  if (record.operation == Operation::kIoctl && !record.IsConnect()) {
    Append(&line, "request " + common::Hex(record.request));
  }
  if (record.payload == Payload::kPrivateData) Append(&line, "private data");
  if (record.commandId) Append(&line, "command " + common::Hex(*record.commandId));
  if (record.status) Append(&line, "status " + common::Hex(*record.status));
  if (!record.why.empty()) Append(&line, "(" + common::Printable(record.why) + ")");
  while (line.back() == ' ') line.pop_back();
  if (record.error != 0) return style.colours.bad + line + style.colours.reset;
  return record.why.empty() ? line : style.colours.warning + line + style.colours.reset;
}

}  // namespace zulisim
