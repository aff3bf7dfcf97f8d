#include "simulator/output/transcript.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <strings.h>

#include "common/hex.h"
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

// "1234/1240", or "1234" for the first thread of a process; "-" where it is unknown.
std::string ThreadName(const OperationRecord& record) {
  if (record.process == 0) return "-";
  const std::string process = std::to_string(record.process);
  return record.thread == record.process ? process : process + "/" + std::to_string(record.thread);
}

// "0.000123", or "11-21 23:57:52.123456" as logcat has it; empty for neither.
std::string TimeText(std::chrono::nanoseconds time, const TranscriptStyle& style) {
  char text[64] = "";
  if (style.start) {
    const std::chrono::duration<double> seconds = time - *style.start;
    std::snprintf(text, sizeof(text), "%-9.6f", seconds.count());
  } else if (style.clock) {
    const std::int64_t microseconds = (time + *style.clock).count() / 1000;
    const std::time_t seconds = microseconds / 1000000;
    struct tm local {};
    localtime_r(&seconds, &local);
    const std::size_t length = std::strftime(text, sizeof(text), "%m-%d %H:%M:%S", &local);
    std::snprintf(text + length, sizeof(text) - length, ".%06d",
                  static_cast<int>(microseconds % 1000000));
  }
  return text;
}

// The first bytes of the message, each line of them after a line feed.
std::string BytesText(const OperationRecord& record, std::size_t most) {
  Bytes message = record.Message();
  const std::size_t all = message.size();
  if (most == 0 || all == 0) return "";
  message.resize(std::min(all, most));
  std::string dump = "\n" + common::HexDump(message, "        ");
  if (all > most) return dump + "        and " + common::Counted(all - most, "more byte");
  dump.pop_back();
  return dump;
}

}  // namespace

std::string LogLineText(const LogLine& line) {
  const common::LogRecord& record = line.record;
  std::string text = record.prefix.empty() ? "" : record.prefix + "  ";
  if (!record.function.empty()) text += record.function + ":" + record.tag + "  ";
  text += common::Printable(record.text);
  text.resize(text.find_last_not_of(' ') + 1);
  return line.copies > 1 ? text + "  x" + std::to_string(line.copies) : text;
}

std::string TranscriptLine(const OperationRecord& record, const TranscriptStyle& style) {
  char number[24];
  std::snprintf(number, sizeof(number), "%4llu", static_cast<unsigned long long>(record.sequence));
  std::string line = number;
  Append(&line, TimeText(record.start, style));
  if (style.threads) Append(&line, Padded(ThreadName(record), 11));
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
  const char* colour = record.error != 0    ? style.colours.bad
                       : record.why.empty() ? ""
                                            : style.colours.warning;
  if (*colour != '\0') line = colour + line + style.colours.reset;
  return line + BytesText(record, style.bytes);
}

bool Transcript::Shows(const OperationRecord& record) {
  const TranscriptFilter& only = style_.only;
  if (record.operation == Operation::kWrite) {
    commands_[record.connection] = WordAt(record.input, kCommandIdOffset).value_or(0);
  } else if (!record.IsTransfer()) {
    commands_.erase(record.connection);
  }
  const bool failed = record.error != 0 || (record.status && IsNegative(*record.status));
  if (only.failures && !failed) return false;
  if (only.client && strcasecmp(only.client->c_str(), record.client.c_str()) != 0) return false;
  if (!only.command) return true;
  const auto command = commands_.find(record.connection);
  return command != commands_.end() && command->second == *only.command;
}

void Transcript::OnOperation(const OperationRecord& record) {
  if (firstThread_ == 0) firstThread_ = record.thread;
  const bool another = record.thread != 0 && record.thread != firstThread_;
  style_.threads = style_.threads || (another && !style_.connectionNumbers);
  if (Shows(record)) sink_(TranscriptLine(record, style_) + "\n");
}

void Transcript::OnLogLine(const LogLine& line) {
  const TranscriptFilter& only = style_.only;
  if (only.client || only.command || (only.failures && !line.IsFailure())) return;
  WriteDim(" log  " + LogLineText(line));
}

void Transcript::OnNote(const std::string& text, std::chrono::nanoseconds time) {
  const std::string at = TimeText(time, style_);
  WriteDim("      " + (at.empty() ? "" : at + "  ") + common::Printable(text));
}

void Transcript::WriteDim(const std::string& line) {
  sink_(style_.colours.dim + line + style_.colours.reset + "\n");
}

}  // namespace zulisim
