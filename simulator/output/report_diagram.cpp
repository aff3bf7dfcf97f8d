#include "simulator/output/report_diagram.h"

#include <algorithm>
#include <map>

#include "common/hex.h"
#include "simulator/output/transcript.h"

namespace zulisim {
namespace {

using Kind = DiagramStep::Kind;

// An ordinary run of more steps is folded but for its beginning, in pieces that a reader can scan.
constexpr std::size_t kLongRun = 32;
constexpr std::size_t kShownOfRun = 12;
constexpr std::size_t kPiece = 400;

std::string Arrow(const DiagramStep& step) {
  if (step.kind == Kind::kNote) return "<span class=\"note\">" + HtmlText(step.label) + "</span>";
  std::string kind = "x";
  if (step.inferred) kind += " g";
  if (step.kind == Kind::kToDriver) kind += " l";
  if (step.kind == Kind::kFromEngine) kind += " l in";
  if (step.failed) kind += " bad";
  if (step.negative) kind += " neg";
  const std::string label = HtmlText(step.label);
  std::string html = "<div class=\"" + kind + "\"><span>" + label + "</span></div>";
  if (!step.remark.empty()) {
    html += "<span class=\"why" + std::string(step.failed ? "" : " w") + "\" title=\"" +
            HtmlText(step.remark) + "\">" + HtmlText(step.remark) + "</span>";
  }
  return html;
}

std::string Row(const Report& report, std::size_t index) {
  const DiagramStep& step = report.steps[index];
  if (!step.isOperation) {
    return "<div class=\"r\" id=\"s" + std::to_string(index) +
           "\"><div class=\"t\"></div><div class=\"d\">" + Arrow(step) + "</div></div>\n";
  }
  const OperationRecord& record = report.operations[step.at];
  std::string key = record.connection == 0 ? "" : "#" + std::to_string(record.connection);
  if (record.descriptor >= 0) key += " fd " + std::to_string(record.descriptor);
  std::string html = "<details id=\"o" + std::to_string(step.at) +
                     "\"><summary class=\"r\"><div class=\"t\"><b>" +
                     std::to_string(record.sequence) + "</b>" + report.Milliseconds(record.start) +
                     "</div><div class=\"d\">" + Arrow(step) + "<span class=\"k\">" + key +
                     "</span></div></summary>";
  html += "<div class=\"bytes\">" + HtmlText(TranscriptLine(record)) + "<br/>took " +
          std::to_string((record.end - record.start).count() / 1000) + " \xc2\xb5s";
  const Bytes message = record.Message();
  if (!message.empty()) {
    html += "<pre>" + HtmlText(common::HexDump(message));
    const std::size_t size = record.IsTransfer() ? static_cast<std::size_t>(record.result) : 0;
    if (size > message.size()) {
      html += "... and " + std::to_string(size - message.size()) + " more bytes\n";
    }
    html += "</pre>";
  }
  return html + "</div></details>\n";
}

std::string Rows(const Report& report, std::size_t from, std::size_t to) {
  std::string html;
  for (std::size_t i = from; i < to; ++i) html += Row(report, i);
  return html;
}

std::string Title(const Report& report, std::size_t from, std::size_t to) {
  std::map<std::string, std::size_t> commands;
  std::size_t negative = 0;
  const OperationRecord* first = nullptr;
  const OperationRecord* last = nullptr;
  for (std::size_t i = from; i < to; ++i) {
    const DiagramStep& step = report.steps[i];
    if (step.beginsCommand) ++commands[step.label.substr(0, step.label.find(','))];
    if (!step.isOperation) continue;
    last = &report.operations[step.at];
    if (first == nullptr) first = last;
    negative += last->status && IsNegative(*last->status) ? 1 : 0;
  }
  std::vector<std::pair<std::size_t, std::string>> counted;
  for (const auto& [name, count] : commands) counted.emplace_back(count, name);
  std::sort(counted.rbegin(), counted.rend());
  std::string title;
  if (first != nullptr) {
    title = "operations " + std::to_string(first->sequence) + " to " +
            std::to_string(last->sequence) + ", " + report.Milliseconds(first->start) + " to " +
            report.Milliseconds(last->end) + " ms";
  }
  for (std::size_t i = 0; i < counted.size() && i < 4; ++i) {
    title += (i == 0 ? ": " : ", ") + std::to_string(counted[i].first) + " \xc3\x97 " +
             counted[i].second;
  }
  if (counted.size() > 4) title += " and " + std::to_string(counted.size() - 4) + " others";
  if (negative > 0) title += "; " + std::to_string(negative) + " negative statuses";
  return title;
}

// The next place from `at` on where a command begins, or `end`.
std::size_t NextCommand(const Report& report, std::size_t at, std::size_t end) {
  while (at < end && !report.steps[at].beginsCommand) ++at;
  return at;
}

std::string OrdinaryRun(const Report& report, std::size_t from, std::size_t to) {
  if (to - from <= kLongRun) return Rows(report, from, to);
  std::size_t at = NextCommand(report, from + kShownOfRun, to);
  std::string html = Rows(report, from, at);
  while (at < to) {
    const std::size_t end = NextCommand(report, std::min(at + kPiece, to), to);
    html += "<details class=\"fold\"><summary>" + HtmlText(Title(report, at, end)) +
            "</summary>\n" + Rows(report, at, end) + "</details>\n";
    at = end;
  }
  return html;
}

}  // namespace

std::string ReportDiagram(const Report& report) {
  std::string html =
      "<h2>Sequence</h2>\n<p class=\"legend\">Solid arrows are device operations; each opens to "
      "show its bytes. Dashed arrows are inferred from them: a device does not see the driver. "
      "Long runs without an event are folded.</p>\n<div class=\"lanes\"><div></div><div>"
      "<span class=\"a\">driver</span><span class=\"b\">library</span><span class=\"c\">engine"
      "</span></div></div>\n<div class=\"diagram\">\n";
  std::size_t from = 0;
  for (std::size_t i = 0; i <= report.steps.size(); ++i) {
    if (i < report.steps.size() && !report.steps[i].remarkable) continue;
    html += OrdinaryRun(report, from, i);
    if (i < report.steps.size()) html += Row(report, i);
    from = i + 1;
  }
  return html + "</div>\n";
}

}  // namespace zulisim
