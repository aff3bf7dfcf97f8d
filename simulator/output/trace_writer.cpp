#include "simulator/output/trace_writer.h"

#include <algorithm>
#include <utility>

#include <nlohmann/json.hpp>

#include "common/hex.h"
#include "common/number.h"
#include "simulator/output/transcript.h"

namespace zulisim {
namespace {

using common::Hex;
using Json = nlohmann::ordered_json;

constexpr std::size_t kShownBytes = 64;
// No connection has that number; 0 is that of opens that failed.
constexpr std::uint64_t kLogTrack = 1000000000;

Json Event(const char* phase, std::uint64_t track, const std::string& name,
           Json arguments = Json::object()) {
  Json event = Json::object({{"ph", phase}, {"pid", 1}, {"tid", track}, {"name", name}});
  event["args"] = std::move(arguments);
  return event;
}

Json Metadata(std::uint64_t track, const char* what, const std::string& name) {
  return Event("M", track, what, Json::object({{"name", name}}));
}

std::string Preview(const Bytes& bytes) {
  std::string text;
  for (std::size_t at = 0; at < std::min(bytes.size(), kShownBytes); at += common::kHexLineSize) {
    text += (at == 0 ? "" : " ") + common::HexLineAt(bytes, at).digits;
  }
  return bytes.size() > kShownBytes ? text + " ..." : text;
}

std::string Name(const OperationRecord& record) {
  if (record.IsConnect()) return "connect";
  if (record.payload == Payload::kPrivateData) return "read private data";
  return OperationName(record.operation);
}

std::string TrackName(const OperationRecord& record) {
  std::string name = "opens that failed";
  if (record.connection != 0) name = "#" + std::to_string(record.connection);
  if (record.descriptor >= 0) name += " fd " + std::to_string(record.descriptor);
  return record.client.empty() ? name : name + " " + record.client;
}

}  // namespace

TraceWriter::TraceWriter(TextSink sink, const std::string& name) : sink_(std::move(sink)) {
  sink_("[");
  Emit(Metadata(0, "process_name", name));
  Emit(Metadata(kLogTrack, "thread_name", "log and notes"));
}

void TraceWriter::Finish(const RunSummary& /*summary*/, std::optional<int> /*status*/) {
  EmitLog(last_);
  sink_("\n]\n");
}

// Names of programs and clients need not be UTF-8.
void TraceWriter::Emit(const Json& event) {
  sink_((first_ ? "\n" : ",\n") + event.dump(-1, ' ', false, Json::error_handler_t::replace));
  first_ = false;
}

// In microseconds.
double TraceWriter::SinceStart(std::chrono::nanoseconds time) {
  if (!start_) start_ = time;
  return static_cast<double>(std::max<std::int64_t>(0, (time - *start_).count())) / 1e3;
}

void TraceWriter::OnOperation(const OperationRecord& record) {
  EmitLog(record.start);
  last_ = record.end;
  if (record.operation == Operation::kOpen || record.IsConnect()) {
    Emit(Metadata(record.connection, "thread_name", TrackName(record)));
  }
  const bool isRequest = record.operation == Operation::kWrite;
  if (isRequest || !record.IsTransfer()) EndCommand(record, record.start);
  if (isRequest) BeginCommand(record);
  EmitOperation(record);
  const auto command = commands_.find(record.connection);
  if (command != commands_.end() && record.status) command->second = Hex(*record.status);
  if (record.error != 0) {
    EmitInstant(record.connection, ErrnoName(record.error), record.end);
  } else if (!record.why.empty()) {
    EmitInstant(record.connection, record.why, record.end);
  }
  // Private data follows a negative status only.
  const bool goesOn = isRequest || (record.status && IsNegative(*record.status));
  if (record.error != 0 || !goesOn) EndCommand(record, record.end);
}

void TraceWriter::OnNote(const std::string& text, std::chrono::nanoseconds time) {
  EmitInstant(kLogTrack, text, time);
}

void TraceWriter::EmitLog(std::chrono::nanoseconds time) {
  for (const std::string& line : log_) EmitInstant(kLogTrack, line, time);
  log_.clear();
}

void TraceWriter::EmitInstant(std::uint64_t track, const std::string& name,
                              std::chrono::nanoseconds time) {
  Json event = Event("i", track, name);
  event.update({{"s", "t"}, {"ts", SinceStart(time)}});
  Emit(event);
}

void TraceWriter::BeginCommand(const OperationRecord& record) {
  commands_[record.connection] = "";
  const auto id = WordAt(record.input, kCommandIdOffset);
  Json event = Event("B", record.connection, "command " + (id ? Hex(*id) : "unknown"),
                     Json::object({{"bytes", record.length}}));
  event.update({{"ts", SinceStart(record.start)}, {"cat", "command"}});
  Emit(event);
}

void TraceWriter::EndCommand(const OperationRecord& record, std::chrono::nanoseconds time) {
  const auto command = commands_.find(record.connection);
  if (command == commands_.end()) return;
  Json event = Event("E", record.connection, "");
  event["ts"] = SinceStart(time);
  if (record.error != 0) event["args"]["failure"] = ErrnoName(record.error);
  if (!command->second.empty()) event["args"]["status"] = command->second;
  commands_.erase(command);
  Emit(event);
}

void TraceWriter::EmitOperation(const OperationRecord& record) {
  Json arguments = Json::object({{"operation", TranscriptLine(record)}});
  if (!record.why.empty()) arguments["why"] = record.why;
  if (record.status) arguments["status"] = Hex(*record.status);
  if (record.process != 0) {
    arguments["process"] = record.process;
    arguments["thread"] = record.thread;
  }
  const Bytes message = record.Message();
  if (!message.empty()) arguments["bytes"] = Preview(message);
  Json event = Event("X", record.connection, Name(record), arguments);
  event.update({{"ts", SinceStart(record.start)},
                {"dur", static_cast<double>((record.end - record.start).count()) / 1e3},
                {"cat", "operation"}});
  Emit(event);
}

}  // namespace zulisim
