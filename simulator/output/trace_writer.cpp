#include "simulator/output/trace_writer.h"

#include <map>
#include <utility>

#include <nlohmann/json.hpp>

#include "common/number.h"
#include "simulator/output/transcript.h"

namespace zulisim {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kShownBytes = 64;
// No connection has this number; failed opens have 0.
constexpr std::uint64_t kLogTrack = 1000000000;

std::string TrackName(const OperationRecord& record) {
  if (record.connection == 0) return "opens that failed";
  std::string name = "#" + std::to_string(record.connection);
  if (record.descriptor >= 0) name += " fd " + std::to_string(record.descriptor);
  return record.client.empty() ? name : name + " " + record.client;
}

class TraceWriter : public OutputWriter {
 public:
  TraceWriter(TextSink sink, const std::string& name) : sink_(std::move(sink)) {
    sink_("[\n");
    Name(0, "process_name", name);
    Name(kLogTrack, "thread_name", "log and notes");
  }

  void OnOperation(const OperationRecord& record) override {
    const std::uint64_t track = record.connection;
    if (record.operation == Operation::kOpen || record.IsConnect()) {
      Name(track, "thread_name", TrackName(record));
    }
    if (record.operation == Operation::kWrite || !record.IsTransfer())
      EndCommand(track, record.start);
    if (record.operation == Operation::kWrite) {
      const auto id = WordAt(record.input, kCommandIdOffset);
      Emit("B", track, "command " + (id ? common::Hex(*id) : "unknown"), record.start);
      commands_[track] = Json::object();
    }
    TranscriptStyle style;
    style.threads = true;
    style.bytes = kShownBytes;
    Emit("X", track, record.IsConnect() ? "connect" : OperationName(record.operation), record.start,
         {{"dur", Microseconds(record.end - record.start)},
          {"args", {{"operation", TranscriptLine(record, style)}}}});
    if (record.error != 0) Mark(track, ErrnoName(record.error), record.end);
    if (record.error == 0 && !record.why.empty()) Mark(track, record.why, record.end);
    const auto command = commands_.find(track);
    if (command == commands_.end()) return;
    if (record.error != 0) command->second["failure"] = ErrnoName(record.error);
    if (record.status) command->second["status"] = common::Hex(*record.status);
    // Private data follows only after a negative status.
    const bool goesOn = record.operation == Operation::kWrite || record.IsFailure();
    if (record.error != 0 || !goesOn) EndCommand(track, record.end);
  }

  void OnLogLine(const std::string& line, bool /*isFailure*/,
                 std::chrono::nanoseconds time) override {
    Mark(kLogTrack, line, time);
  }

  void OnDeviceEvent(const DeviceEvent& event) override { Mark(kLogTrack, event.text, event.time); }

  void Finish(const RunSummary& /*summary*/, std::optional<int> /*status*/) override {
    sink_("\n]\n");
  }

 private:
  static double Microseconds(std::chrono::nanoseconds time) {
    return std::chrono::duration<double, std::micro>(time).count();
  }

  // Names of programs and clients need not be valid UTF-8.
  void Emit(const char* phase, std::uint64_t track, const std::string& name,
            std::chrono::nanoseconds time, const Json& members = Json::object()) {
    Json event = {{"ph", phase}, {"pid", 1}, {"tid", track}, {"name", name}};
    event["ts"] = Microseconds(time);
    event.update(members);
    sink_((first_ ? "" : ",\n") + event.dump(-1, ' ', false, Json::error_handler_t::replace));
    first_ = false;
  }
  void Name(std::uint64_t track, const char* what, const std::string& name) {
    Emit("M", track, what, {}, {{"args", {{"name", name}}}});
  }
  void Mark(std::uint64_t track, const std::string& name, std::chrono::nanoseconds time) {
    Emit("i", track, name, time, {{"s", "t"}});
  }
  void EndCommand(std::uint64_t track, std::chrono::nanoseconds time) {
    const auto command = commands_.find(track);
    if (command == commands_.end()) return;
    Emit("E", track, "", time, {{"args", command->second}});
    commands_.erase(command);
  }

  const TextSink sink_;
  bool first_ = true;
  std::map<std::uint64_t, Json> commands_;  // arguments of the unfinished commands, by track
};

}  // namespace

std::unique_ptr<OutputWriter> MakeTraceWriter(TextSink sink, const std::string& name) {
  return std::make_unique<TraceWriter>(std::move(sink), name);
}

}  // namespace zulisim
