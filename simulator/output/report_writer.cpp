#include "simulator/output/report_writer.h"

#include <cstring>
#include <utility>

#include <nlohmann/json.hpp>

#include "simulator/output/run_summary.h"

namespace zulisim {
namespace {

using Json = nlohmann::ordered_json;

// Above this size, the page shows only failures.
constexpr std::size_t kHugePage = 256 << 20;

constexpr char kPage[] =
#include "simulator/output/report_html.inc"
    ;
constexpr char kStyle[] =
#include "simulator/output/report_css.inc"
    ;
constexpr char kScript[] =
#include "simulator/output/report_js.inc"
    ;

// The text is the content of a script element, so it must not contain '<'. Names and logs need not
// be valid UTF-8.
std::string Text(const Json& json) {
  std::string text;
  for (const char c : json.dump(-1, ' ', false, Json::error_handler_t::replace)) {
    c == '<' ? text += "\\u003c" : text += c;
  }
  return text;
}

class ReportWriter : public OutputWriter {
 public:
  ReportWriter(TextSink sink, const Json& head, const TranscriptStyle& style)
      : sink_(std::move(sink)), head_(head), style_(style) {
    style_.bytes = 1024;  // shown bytes of each message
    for (const auto& [mark, text] : {std::pair("{{style}}", kStyle), {"{{script}}", kScript}}) {
      page_.replace(page_.find(mark), std::strlen(mark), text);
    }
    sink_(page_.substr(0, page_.find(kMark)));
  }

  void OnOperation(const OperationRecord& record) override {
    const std::chrono::duration<double, std::micro> took = record.end - record.start;
    const bool delivers = record.operation == Operation::kRead && record.error == 0;
    Add(delivers ? "in" : "out", TranscriptLine(record, style_), record.IsFailure(), took.count());
  }

  void OnLogLine(const std::string& line, bool isFailure, std::chrono::nanoseconds) override {
    Add("log", line, isFailure);
  }

  void OnDeviceEvent(const DeviceEvent& event) override {
    Add("note", NoteText(event, style_), false);
  }

  void Finish(const RunSummary& summary, std::optional<int> status) override {
    if (leftOut_ > 0) Add("note", std::to_string(leftOut_) + " ordinary lines left out", true);
    head_["exit status"] = status ? std::to_string(*status) : "";
    head_["summary"] = summary.Text();
    sink_(Text(Json::object({{"head", head_}})) +
          page_.substr(page_.find(kMark) + std::strlen(kMark)));
  }

 private:
  void Add(const char* kind, const std::string& text, bool failed, double took = 0) {
    if (written_ > kHugePage && !failed) {
      ++leftOut_;
      return;
    }
    const std::string row = Text({{kind, text}, {"failed", failed}, {"took", took}}) + "\n";
    written_ += row.size();
    sink_(row);
  }

  static constexpr char kMark[] = "{{data}}";

  const TextSink sink_;
  Json head_;
  TranscriptStyle style_;
  std::string page_ = kPage;
  std::size_t written_ = 0;
  std::size_t leftOut_ = 0;
};

}  // namespace

std::unique_ptr<OutputWriter> MakeReportWriter(TextSink sink, const Json& head,
                                               const TranscriptStyle& style) {
  return std::make_unique<ReportWriter>(std::move(sink), head, style);
}

}  // namespace zulisim
