#include "simulator/output/trace_writer.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <utility>

#include "simulator/engine/engine.h"
#include "simulator/output/escape.h"
#include "simulator/device/hex_lines.h"
#include "simulator/output/transcript.h"

namespace zulisim {
namespace {

constexpr std::size_t kShownBytes = 64;

std::string Hex(std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%x", value);
  return text;
}

std::string Microseconds(std::chrono::nanoseconds time) {
  const std::int64_t count = time.count() < 0 ? 0 : time.count();
  char text[48];
  std::snprintf(text, sizeof(text), "%" PRId64 ".%03" PRId64, count / 1000, count % 1000);
  return text;
}

std::string Member(const std::string& key, const std::string& value) {
  return ",\"" + key + "\":\"" + JsonText(value) + "\"";
}

std::string Preview(const Bytes& bytes) {
  std::string text;
  for (std::size_t at = 0; at < bytes.size() && at < kShownBytes; at += kHexLineSize) {
    text += (at == 0 ? "" : " ") + HexLineAt(bytes, at).digits;
  }
  return bytes.size() > kShownBytes ? text + " ..." : text;
}

bool IsConnect(const OperationRecord& record) {
  return record.operation == Operation::kIoctl && record.request == kConnectRequest;
}

std::string Name(const OperationRecord& record) {
  if (IsConnect(record)) return "connect";
  if (record.payload == Payload::kPrivateData) return "read private data";
  return OperationName(record.operation);
}

}  // namespace

TraceWriter::TraceWriter(Sink sink, const std::string& name) : sink_(std::move(sink)) {
  sink_("[");
  Emit("{\"ph\":\"M\",\"pid\":1,\"tid\":0,\"name\":\"process_name\",\"args\":{\"name\":\"" +
       JsonText(name) + "\"}}");
}

TraceWriter::~TraceWriter() {
  while (!exchanges_.empty()) Finish(exchanges_.begin()->first);
  sink_("\n]\n");
}

void TraceWriter::Emit(const std::string& event) {
  sink_((first_ ? "\n" : ",\n") + event);
  first_ = false;
}

void TraceWriter::OnOperation(const OperationRecord& record) {
  if (!start_) start_ = record.start;
  if (record.operation == Operation::kOpen || IsConnect(record)) NameTrack(record);
  Continue(record);
}

void TraceWriter::NameTrack(const OperationRecord& record) {
  std::string name = "opens that failed";
  if (record.connection != 0) name = "#" + std::to_string(record.connection);
  if (record.descriptor >= 0) name += " fd " + std::to_string(record.descriptor);
  if (!record.client.empty()) name += " " + record.client;
  Emit("{\"ph\":\"M\",\"pid\":1,\"tid\":" + std::to_string(record.connection) +
       ",\"name\":\"thread_name\",\"args\":{\"name\":\"" + JsonText(name) + "\"}}");
}

void TraceWriter::Continue(const OperationRecord& record) {
  const std::uint64_t connection = record.connection;
  const bool isMessage =
      record.operation == Operation::kRead || record.operation == Operation::kWrite;
  if (record.operation == Operation::kWrite || !isMessage) Finish(connection);
  std::vector<std::string> events = {Slice(record)};
  if (record.error != 0) {
    events.push_back(Instant(record, ErrnoName(record.error)));
    if (record.error == ENODEV) lost_.insert(record.client);
  } else if (!record.why.empty()) {
    events.push_back(Instant(record, record.why));
  }
  if (IsConnect(record) && record.error == 0 && lost_.erase(record.client) > 0) {
    events.push_back(Instant(record, "reconnect"));
  }
  if (record.operation == Operation::kWrite) exchanges_[connection].request = record;
  const auto found = exchanges_.find(connection);
  if (found == exchanges_.end()) {
    for (const std::string& event : events) Emit(event);
    return;
  }
  Exchange* exchange = &found->second;
  exchange->events.insert(exchange->events.end(), events.begin(), events.end());
  exchange->end = record.end;
  if (record.status) exchange->status = record.status;
  if (record.error != 0) exchange->outcome = ErrnoName(record.error);
  // Private data follows a negative status only.
  const bool goesOn = record.operation == Operation::kWrite
                          ? record.error == 0
                          : record.status && (*record.status & 0x80000000) != 0;
  if (!goesOn) Finish(connection);
}

void TraceWriter::Finish(std::uint64_t connection) {
  const auto found = exchanges_.find(connection);
  if (found == exchanges_.end()) return;
  const Exchange& exchange = found->second;
  const OperationRecord& request = exchange.request;
  const std::string command = request.commandId ? Hex(*request.commandId) : "unknown";
  std::string name = "command " + command;
  std::string members = ",\"bytes\":" + std::to_string(request.length) + Member("command", command);
  if (exchange.status) {
    name += ", status " + Hex(*exchange.status);
    members += Member("status", Hex(*exchange.status));
  }
  if (!exchange.outcome.empty()) {
    name += ", " + exchange.outcome;
    members += Member("failure", exchange.outcome);
  }
  Emit("{\"ph\":\"X\"" + Place(request, request.start) +
       ",\"dur\":" + Microseconds(exchange.end - request.start) + ",\"cat\":\"exchange\"" +
       Member("name", name) + ",\"args\":{" + members.substr(1) + "}}");
  for (const std::string& event : exchange.events) Emit(event);
  exchanges_.erase(found);
}

std::string TraceWriter::Place(const OperationRecord& record, std::chrono::nanoseconds at) const {
  return ",\"pid\":1,\"tid\":" + std::to_string(record.connection) +
         ",\"ts\":" + Microseconds(at - *start_);
}

std::string TraceWriter::Slice(const OperationRecord& record) const {
  std::string arguments = Member("operation", TranscriptLine(record));
  if (record.status) arguments += Member("status", Hex(*record.status));
  if (!record.bytes.empty()) arguments += Member("bytes", Preview(record.bytes));
  return "{\"ph\":\"X\"" + Place(record, record.start) +
         ",\"dur\":" + Microseconds(record.end - record.start) + ",\"cat\":\"operation\"" +
         Member("name", Name(record)) + ",\"args\":{" + arguments.substr(1) + "}}";
}

std::string TraceWriter::Instant(const OperationRecord& record, const std::string& name) const {
  return "{\"ph\":\"i\",\"s\":\"t\"" + Place(record, record.end) + ",\"cat\":\"event\"" +
         Member("name", name) + ",\"args\":{" +
         Member("why", record.why.empty() ? name : record.why).substr(1) + "}}";
}

}  // namespace zulisim
