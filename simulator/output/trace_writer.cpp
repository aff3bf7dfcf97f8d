#include "simulator/output/trace_writer.h"

#include <algorithm>
#include <cerrno>
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

// What a program or a scenario names need not be UTF-8.
std::string Text(const Json& event) {
  return event.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json Event(const char* phase, std::uint64_t track, const std::string& name, Json arguments) {
  Json event = Json::object({{"ph", phase}, {"pid", 1}, {"tid", track}, {"name", name}});
  event["args"] = std::move(arguments);
  return event;
}

std::string Metadata(std::uint64_t track, const char* what, const std::string& name) {
  return Text(Event("M", track, what, Json::object({{"name", name}})));
}

std::string Preview(const Bytes& bytes) {
  std::string text;
  for (std::size_t at = 0; at < std::min(bytes.size(), kShownBytes); at += common::kHexLineSize) {
    text += (at == 0 ? "" : " ") + common::HexLineAt(bytes, at).digits;
  }
  return bytes.size() > kShownBytes ? text + " ..." : text;
}

double Microseconds(std::chrono::nanoseconds time) {
  return static_cast<double>(std::max<std::int64_t>(0, time.count())) / 1e3;
}

std::string Name(const OperationRecord& record) {
  if (record.IsConnect()) return "connect";
  if (record.payload == Payload::kPrivateData) return "read private data";
  return OperationName(record.operation);
}

}  // namespace

TraceWriter::TraceWriter(TextSink sink, const std::string& name) : sink_(std::move(sink)) {
  sink_("[");
  Emit(Metadata(0, "process_name", name));
}

TraceWriter::~TraceWriter() {
  while (!exchanges_.empty()) Finish(exchanges_.begin()->first);
  EmitLog(last_);
  sink_("\n]\n");
}

void TraceWriter::Emit(const std::string& event) {
  sink_((first_ ? "\n" : ",\n") + event);
  first_ = false;
}

void TraceWriter::OnOperation(const OperationRecord& record) {
  if (!start_) start_ = record.start;
  EmitLog(record.start);
  last_ = record.end;
  if (record.operation == Operation::kOpen || record.IsConnect()) {
    Emit(Metadata(record.connection, "thread_name", TrackName(record)));
  }
  std::vector<std::string> events = {OperationSlice(record)};
  if (record.error != 0) {
    events.push_back(Instant(record, ErrnoName(record.error)));
    if (record.error == ENODEV) lost_.insert(record.client);
  } else if (!record.why.empty()) {
    events.push_back(Instant(record, record.why));
  }
  if (record.IsConnect() && record.error == 0 && lost_.erase(record.client) > 0) {
    events.push_back(Instant(record, "reconnect"));
  }
  Continue(record, events);
}

void TraceWriter::EmitLog(std::chrono::nanoseconds at) {
  if (!log_.empty() && !logTrack_) Emit(Metadata(kLogTrack, "thread_name", "the library's log"));
  logTrack_ = logTrack_ || !log_.empty();
  for (const std::string& line : log_) {
    Json event = Event("i", kLogTrack, line, Json::object());
    event.update({{"s", "t"}, {"ts", Microseconds(at - start_.value_or(at))}, {"cat", "log"}});
    Emit(Text(event));
  }
  log_.clear();
}

std::string TraceWriter::TrackName(const OperationRecord& record) const {
  std::string name = "opens that failed";
  if (record.connection != 0) name = "#" + std::to_string(record.connection);
  if (record.descriptor >= 0) name += " fd " + std::to_string(record.descriptor);
  return record.client.empty() ? name : name + " " + record.client;
}

void TraceWriter::Continue(const OperationRecord& record, const std::vector<std::string>& events) {
  const bool isRequest = record.operation == Operation::kWrite;
  if (isRequest || !record.IsTransfer()) Finish(record.connection);
  if (isRequest) exchanges_[record.connection].request = record;
  const auto found = exchanges_.find(record.connection);
  if (found == exchanges_.end()) {
    for (const std::string& event : events) Emit(event);
    return;
  }
  Exchange* exchange = &found->second;
  exchange->events.insert(exchange->events.end(), events.begin(), events.end());
  exchange->end = record.end;
  if (record.status) exchange->status = record.status;
  if (record.error != 0) exchange->failure = ErrnoName(record.error);
  // Private data follows a negative status only.
  const bool goesOn = isRequest ? record.error == 0 : record.status && IsNegative(*record.status);
  if (!goesOn) Finish(record.connection);
}

void TraceWriter::Finish(std::uint64_t connection) {
  const auto found = exchanges_.find(connection);
  if (found == exchanges_.end()) return;
  Emit(ExchangeSlice(found->second));
  for (const std::string& event : found->second.events) Emit(event);
  exchanges_.erase(found);
}

std::string TraceWriter::ExchangeSlice(const Exchange& exchange) const {
  const OperationRecord& request = exchange.request;
  const std::string command = request.commandId ? Hex(*request.commandId) : "unknown";
  std::string name = "command " + command;
  Json arguments = Json::object({{"bytes", request.length}, {"command", command}});
  if (exchange.status) {
    name += ", status " + Hex(*exchange.status);
    arguments["status"] = Hex(*exchange.status);
  }
  if (!exchange.failure.empty()) {
    name += ", " + exchange.failure;
    arguments["failure"] = exchange.failure;
  }
  Json event = Event("X", request.connection, name, arguments);
  event.update({{"ts", Microseconds(request.start - *start_)},
                {"dur", Microseconds(exchange.end - request.start)},
                {"cat", "exchange"}});
  return Text(event);
}

std::string TraceWriter::OperationSlice(const OperationRecord& record) const {
  Json arguments = Json::object({{"operation", TranscriptLine(record)}});
  if (record.status) arguments["status"] = Hex(*record.status);
  if (record.process != 0) {
    arguments["process"] = record.process;
    arguments["thread"] = record.thread;
  }
  const Bytes message = record.Message();
  if (!message.empty()) arguments["bytes"] = Preview(message);
  Json event = Event("X", record.connection, Name(record), arguments);
  event.update({{"ts", Microseconds(record.start - *start_)},
                {"dur", Microseconds(record.end - record.start)},
                {"cat", "operation"}});
  return Text(event);
}

std::string TraceWriter::Instant(const OperationRecord& record, const std::string& name) const {
  const std::string& why = record.why.empty() ? name : record.why;
  Json event = Event("i", record.connection, name, Json::object({{"why", why}}));
  event.update({{"s", "t"}, {"ts", Microseconds(record.end - *start_)}, {"cat", "event"}});
  return Text(event);
}

}  // namespace zulisim
