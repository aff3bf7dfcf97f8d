#include "simulator/output/report_writer.h"

#include <algorithm>
#include <utility>

#include <nlohmann/json.hpp>

#include "common/number.h"
#include "simulator/output/run_summary.h"

namespace zulisim {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kBeginning = 100000, kEnd = 100000, kMostKept = 200000;
constexpr std::size_t kBeforeFailure = 20, kAfterFailure = 10;
// Of each message, until the rows hold so much together; of later ones fewer.
constexpr std::size_t kMostBytes = 1024, kFewBytes = 64;
constexpr std::size_t kMuch = 64 << 20;
constexpr std::size_t kPiece = 1 << 20;  // that is written at once

constexpr char kPage[] =
#include "simulator/output/report_html.inc"
    ;
constexpr char kStyle[] =
#include "simulator/output/report_css.inc"
    ;
constexpr char kScript[] =
#include "simulator/output/report_js.inc"
    ;

// As the content of a script element, which no '<' may end. Names and logs need not be UTF-8.
std::string Text(const Json& json) {
  std::string text;
  for (const char c : json.dump(-1, ' ', false, Json::error_handler_t::replace)) {
    c == '<' ? text += "\\u003c" : text += c;
  }
  return text;
}

std::string HexText(const Bytes& bytes, std::size_t most) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < std::min(bytes.size(), most); ++i) {
    text += {kDigits[bytes[i] >> 4], kDigits[bytes[i] & 15]};
  }
  return text;
}

const char* Name(const OperationRecord& record) {
  if (record.IsConnect()) return "connect";
  if (record.payload == Payload::kPrivateData) return "read private data";
  return OperationName(record.operation);
}

}  // namespace

ReportWriter::ReportWriter(TextSink sink, ReportHead head, std::chrono::nanoseconds clock)
    : sink_(std::move(sink)), head_(std::move(head)), clock_(clock), keepUntil_(kBeginning) {}

// In microseconds.
double ReportWriter::SinceStart(std::chrono::nanoseconds time) {
  if (!start_) start_ = time;
  return static_cast<double>((time - *start_).count()) / 1e3;
}

void ReportWriter::OnOperation(const OperationRecord& record) {
  Json row = {{"number", record.sequence},
              {"start", SinceStart(record.start)},
              {"took", static_cast<double>((record.end - record.start).count()) / 1e3},
              {"name", Name(record)},
              {"read", record.operation == Operation::kRead && record.error == 0}};
  const auto add = [&row](const char* key, const auto& value, bool known) {
    if (known) row[key] = value;
  };
  add("connection", record.connection, record.connection != 0);
  add("descriptor", record.descriptor, record.descriptor >= 0);
  add("client", record.client, !record.client.empty());
  add("process", record.process, record.process != 0);
  add("thread", record.thread, record.process != 0);
  add("length", record.length, record.IsTransfer());
  add("moved", record.result, record.IsTransfer() && record.error == 0);
  add("command", common::Hex(record.commandId.value_or(0)), record.commandId.has_value());
  add("status", common::Hex(record.status.value_or(0)), record.status.has_value());
  add("request", common::Hex(record.request),
      record.operation == Operation::kIoctl && !record.IsConnect());
  add("error", ErrnoName(record.error), record.error != 0);
  add("why", record.why, !record.why.empty());
  const bool failed = record.error != 0 || (record.status && IsNegative(*record.status));
  const std::string bytes =
      HexText(record.Message(), failed || held_ < kMuch ? kMostBytes : kFewBytes);
  add("bytes", bytes, !bytes.empty());
  Add(row, failed);
}

void ReportWriter::OnLogLine(const LogLine& line) {
  Add(Json::object({{"log", LogLineText(line)}}), line.IsFailure());
}

void ReportWriter::OnNote(const std::string& text, std::chrono::nanoseconds time) {
  Add(Json::object({{"note", text}, {"start", SinceStart(time)}}), false);
}

void ReportWriter::Add(const Json& row, bool failed) {
  Json marked = row;
  if (failed) marked["failed"] = true;
  recent_.push_back({Text(marked), ++added_, added_ <= keepUntil_});
  held_ += recent_.back().json.size();
  if (failed && kept_.size() < kMostKept) {
    const auto before = static_cast<std::ptrdiff_t>(std::min(recent_.size(), 1 + kBeforeFailure));
    std::for_each(recent_.end() - before, recent_.end(), [](Row& each) { each.kept = true; });
    keepUntil_ = std::max<std::uint64_t>(keepUntil_, added_ + kAfterFailure);
  }
  if (recent_.size() <= kEnd) return;
  if (recent_.front().kept) {
    kept_.push_back(std::move(recent_.front()));
  } else {
    held_ -= recent_.front().json.size();
  }
  recent_.pop_front();
}

void ReportWriter::Finish(const RunSummary& summary, std::optional<int> status) {
  std::string page = kPage;
  const auto fill = [&page](const std::string& mark, const std::string& text) {
    page.replace(page.find(mark), mark.size(), text);
  };
  fill("{{style}}", kStyle);
  fill("{{script}}", kScript);
  const std::string mark = "{{data}}";
  const std::size_t data = page.find(mark);
  Json head = {{"program", head_.program},
               {"instructions", head_.instructions},
               {"exit status", status ? std::to_string(*status) : ""},
               {"written by", head_.version},
               {"date", head_.date}};
  const double clock = static_cast<double>((start_.value_or(clock_) + clock_).count()) / 1e6;
  sink_(page.substr(0, data) + "{\"head\":" + Text(head) + ",\"summary\":" + Text(summary.Json()) +
        ",\"clock\":" + Text(clock) + ",\"rows\":[");
  std::uint64_t last = 0;
  std::string piece;
  const auto write = [&](const Row& row) {
    const std::uint64_t gap = row.number - last - 1;
    piece += last == 0 ? "\n" : ",\n";
    if (gap > 0) piece += Text(Json::object({{"gap", gap}})) + ",\n";
    piece += row.json;
    last = row.number;
    if (piece.size() > kPiece) sink_(std::exchange(piece, ""));
  };
  std::for_each(kept_.begin(), kept_.end(), write);
  std::for_each(recent_.begin(), recent_.end(), write);
  sink_(piece + "\n]}" + page.substr(data + mark.size()));
}

}  // namespace zulisim
