#include "simulator/output/report_writer.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <iterator>
#include <utility>

#include "simulator/output/transcript.h"

namespace zulisim {
namespace {

// Of a long run. A browser shows their sum without pain.
constexpr std::size_t kBeginning = 3000;
constexpr std::size_t kEnd = 3000;
constexpr std::size_t kSurroundings = 8000;  // of all failures together
// Of one failure: while there is much room; and after that, or when the library mended it.
constexpr std::size_t kBefore = 20, kAfter = 10;
constexpr std::size_t kBeforeOfMany = 6, kAfterOfMany = 2;
constexpr std::size_t kMostBytes = 1024;  // of a message that the page shows

}  // namespace

ReportWriter::ReportWriter(TextSink sink, ReportHead head) : sink_(std::move(sink)) {
  report_.head = std::move(head);
}

ReportWriter::~ReportWriter() {
  try {
    std::move(recent_.begin(), recent_.end(), std::back_inserter(report_.entries));
    sink_(ReportPage(report_));
  } catch (const std::exception&) {
    // A run that is too long for its memory has its other files.
  }
}

void ReportWriter::Count(const OperationRecord& record, const std::vector<DiagramStep>& steps) {
  Report::Counts* counts = &report_.counts;
  if (++counts->operations == 1) report_.start = record.start;
  report_.end = std::max(report_.end, record.end);
  for (const DiagramStep& step : steps) {
    counts->commands += step.beginsCommand ? 1 : 0;
    counts->failedCommands += step.IsDriverFailure() ? 1 : 0;
  }
  counts->negative += record.status && IsNegative(*record.status) ? 1 : 0;
  counts->failedOperations += record.error != 0 ? 1 : 0;
  counts->losses += record.error == ENODEV ? 1 : 0;
  const std::int64_t moved = std::max<std::int64_t>(0, record.result);
  if (record.operation == Operation::kWrite) counts->sent += moved;
  if (record.operation == Operation::kRead) counts->received += moved;
  if (record.connection == 0) return;
  Report::Connection* connection = &report_.connections[record.connection];
  if (connection->operations++ == 0) {
    connection->opened = record.start;
    connection->firstSequence = record.sequence;
  }
  if (!record.client.empty()) connection->client = record.client;
  connection->descriptor = std::max(connection->descriptor, record.descriptor);
  connection->failures += record.error != 0 ? 1 : 0;
  if (record.operation == Operation::kClose) {
    connection->end = record.why.empty() ? "closed" : record.why;
  }
}

void ReportWriter::Add(const OperationRecord& record, std::vector<DiagramStep> steps) {
  const bool failed = std::any_of(steps.begin(), steps.end(),
                                  [](const DiagramStep& step) { return step.IsDriverFailure(); });
  recent_.push_back(
      {record, std::move(steps), ++added_, added_ <= std::max(kBeginning, keepUntil_)});
  Report::Entry* entry = &recent_.back();
  for (Bytes* bytes : {&entry->record.input, &entry->record.output}) {
    if (bytes->size() > kMostBytes) bytes->resize(kMostBytes);
  }
  const bool remarkable = std::any_of(entry->steps.begin(), entry->steps.end(),
                                      [](const DiagramStep& step) { return step.remarkable; });
  // The driver's failures come first: what the library mended gets less, and half of the room.
  const bool many = !failed || report_.entries.size() > kBeginning + kSurroundings / 2;
  const std::size_t room = kBeginning + (failed ? kSurroundings : kSurroundings / 2);
  if (remarkable && report_.entries.size() < room) {
    const std::size_t before = std::min(recent_.size(), 1 + (many ? kBeforeOfMany : kBefore));
    std::for_each(recent_.end() - static_cast<std::ptrdiff_t>(before), recent_.end(),
                  [](Report::Entry& each) { each.kept = true; });
    keepUntil_ = std::max(keepUntil_, added_ + (many ? kAfterOfMany : kAfter));
  }
  if (recent_.size() <= kEnd) return;
  if (recent_.front().kept) report_.entries.push_back(std::move(recent_.front()));
  recent_.pop_front();
}

void ReportWriter::OnOperation(const OperationRecord& record) {
  std::vector<DiagramStep> steps = history_.Add(record);
  Count(record, steps);
  last_.sequence = record.sequence;
  last_.start = record.start;
  last_.end = record.end;
  Add(record, std::move(steps));
}

void ReportWriter::OnLogLine(const LogLine& line) {
  DiagramStep step;
  step.kind = DiagramStep::Kind::kLog;
  step.label = LogLineText(line);
  Add(last_, {step});
}

}  // namespace zulisim
