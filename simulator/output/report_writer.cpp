#include "simulator/output/report_writer.h"

#include <exception>
#include <iterator>
#include <utility>

#include "simulator/output/report_page.h"

namespace zulisim {
namespace {

// A browser shows so many without pain.
constexpr std::size_t kMostOperations = 20000;

}  // namespace

ReportWriter::ReportWriter(Sink sink, std::string name)
    : sink_(std::move(sink)), name_(std::move(name)) {}

ReportWriter::~ReportWriter() {
  try {
    sink_(ReportPage({name_, total_, std::move(operations_), std::move(steps_)}));
  } catch (const std::exception&) {
    // A run that is too long for its memory has its other files.
  }
}

void ReportWriter::OnOperation(const OperationRecord& record) {
  if (++total_ > kMostOperations) return;
  std::vector<StoryStep> steps = story_.Tell(record, operations_.size());
  std::move(steps.begin(), steps.end(), std::back_inserter(steps_));
  operations_.push_back(record);
  Bytes* bytes = &operations_.back().bytes;
  if (bytes->size() > kReportedBytes)
    *bytes = Bytes(bytes->begin(), bytes->begin() + kReportedBytes);
}

}  // namespace zulisim
