#include "simulator/output/transcript.h"

#include <strings.h>

#include <algorithm>
#include <ctime>

#include "common/format.h"
#include "common/hex.h"
#include "common/number.h"
#include "common/text.h"

namespace zulisim {
namespace {

std::string Descriptor(const OperationRecord& record, const TranscriptStyle& style) {
  if (record.connection == 0) return "-";
  const bool byNumber = record.descriptor < 0 || style.connectionNumbers;
  return byNumber ? common::Format("#{}", record.connection)
                  : common::Format("fd {}", record.descriptor);
}

std::string Amount(const OperationRecord& record) {
  if (!record.IsTransfer()) return "";
  const bool whole = record.result < 0 || static_cast<std::size_t>(record.result) == record.length;
  return whole ? common::Format("{} bytes", record.length)
               : common::Format("{} of {} bytes", record.result, record.length);
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

// Returns for example "1234/1240" for thread 1240 of process 1234, "1234" for the first thread, and
// "-" if the process is unknown.
std::string ThreadName(const OperationRecord& record) {
  if (record.process == 0) return "-";
  return record.thread == record.process ? std::to_string(record.process)
                                         : common::Format("{}/{}", record.process, record.thread);
}

// Returns "0.000123" (seconds since the start), or "11-21 23:57:52.123456" (date and time as in
// logcat), or an empty text if the style shows no time.
std::string TimeText(std::chrono::nanoseconds time, const TranscriptStyle& style) {
  using Seconds = std::chrono::duration<double>;
  if (style.start) return common::Format("{:.6f}", Seconds(time - *style.start).count());
  if (!style.clock) return "";
  const std::int64_t microseconds = (time + *style.clock).count() / 1000;
  const std::time_t seconds = microseconds / 1000000;
  char text[32] = "";
  std::strftime(text, sizeof(text), "%m-%d %H:%M:%S", std::localtime(&seconds));
  return common::Format("{}.{:06}", text, microseconds % 1000000);
}

// Returns the first bytes of the message as lines, each after a line feed.
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

std::string NoteText(const DeviceEvent& event, const TranscriptStyle& style) {
  return common::Format("{} {}", TimeText(event.time, style), common::Printable(event.text));
}

std::string TranscriptLine(const OperationRecord& record, const TranscriptStyle& style) {
  std::string line = common::Format("{:4}", record.sequence);
  const auto add = [&line](const std::string& field, int width = 0) {
    if (!field.empty()) line += common::Format("  {:<{}}", field, width);
  };
  add(TimeText(record.start, style), 9);
  if (style.threads) add(ThreadName(record), 11);
  add(Descriptor(record, style), 5);
  add(record.client.empty() ? "-" : common::Printable(record.client), 4);
  add(record.IsConnect() ? "connect" : OperationName(record.operation), 7);
  add(ResultText(record));
  add(Amount(record));
  if (record.operation == Operation::kIoctl && !record.IsConnect()) {
    add("request " + common::Hex(record.request));
  }
  if (record.payload == Payload::kPrivateData) add("private data");
  if (record.commandId) add("command " + common::Hex(*record.commandId));
  if (record.status) add("status " + common::Hex(*record.status));
  if (!record.why.empty()) add("(" + common::Printable(record.why) + ")");
  while (line.back() == ' ') line.pop_back();
  const char* colour = record.error != 0    ? style.colours.bad
                       : record.why.empty() ? ""
                                            : style.colours.warning;
  if (*colour != '\0') line = colour + line + style.colours.reset;
  return line + BytesText(record, style.bytes.value_or(0));
}

bool Transcript::Shows(const OperationRecord& record) {
  const TranscriptFilter& only = style_.only;
  if (record.operation == Operation::kWrite) {
    commands_[record.connection] = WordAt(record.input, kCommandIdOffset).value_or(0);
  } else if (!record.IsTransfer()) {
    commands_.erase(record.connection);
  }
  if (only.failures && !record.IsFailure()) return false;
  const auto isClient = [&record](const std::string& name) {
    return strcasecmp(name.c_str(), record.client.c_str()) == 0;
  };
  const auto& clients = only.clients;
  if (!clients.empty() && std::none_of(clients.begin(), clients.end(), isClient)) return false;
  if (only.commands.empty()) return true;
  const auto command = commands_.find(record.connection);
  return command != commands_.end() && only.commands.count(command->second) != 0;
}

void Transcript::OnOperation(const OperationRecord& record) {
  if (firstThread_ == 0) firstThread_ = record.thread;
  const bool another = record.thread != 0 && record.thread != firstThread_;
  style_.threads = style_.threads || (another && !style_.connectionNumbers);
  if (Shows(record)) sink_(TranscriptLine(record, style_) + "\n");
}

void Transcript::OnLogLine(const std::string& line, bool isFailure, std::chrono::nanoseconds) {
  const TranscriptFilter& only = style_.only;
  if (!only.clients.empty() || !only.commands.empty() || (only.failures && !isFailure)) return;
  WriteDim(" log  " + line);
}

void Transcript::OnDeviceEvent(const DeviceEvent& event) {
  WriteDim(" note " + NoteText(event, style_));
}

void Transcript::WriteDim(const std::string& line) {
  sink_(style_.colours.dim + line + style_.colours.reset + "\n");
}

}  // namespace zulisim
