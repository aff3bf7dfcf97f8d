#include "simulator/output/report_summary.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <map>

namespace zulisim {
namespace {

constexpr std::size_t kMostEvents = 100;
constexpr std::size_t kMostConnections = 50;
constexpr std::size_t kBins = 200;

struct Figures {
  std::size_t commands = 0;
  std::size_t negative = 0;
  std::size_t failures = 0;
  std::size_t losses = 0;
  std::size_t sent = 0;
  std::size_t received = 0;
};

Figures Count(const Report& report) {
  Figures figures;
  for (const DiagramStep& step : report.steps) figures.commands += step.beginsCommand ? 1 : 0;
  for (const OperationRecord& record : report.operations) {
    figures.negative += record.status && IsNegative(*record.status) ? 1 : 0;
    figures.failures += record.error != 0 ? 1 : 0;
    figures.losses += record.error == ENODEV ? 1 : 0;
    if (record.error != 0) continue;
    if (record.operation == Operation::kWrite)
      figures.sent += static_cast<std::size_t>(record.result);
    if (record.operation == Operation::kRead)
      figures.received += static_cast<std::size_t>(record.result);
  }
  return figures;
}

std::string Card(const std::string& figure, const std::string& what, const char* kind = "") {
  return std::string("<div class=\"") + kind + "\"><b>" + figure + "</b>" + what + "</div>";
}

std::string Cards(const Report& report) {
  const Figures figures = Count(report);
  const std::string length =
      report.operations.empty() ? "0.000" : report.Milliseconds(report.operations.back().end);
  return "<div class=\"cards\">" + Card(std::to_string(report.total), "operations") +
         Card(std::to_string(figures.commands), "commands") +
         Card(std::to_string(figures.negative), "negative statuses",
              figures.negative > 0 ? "warn" : "") +
         Card(std::to_string(figures.failures), "failed operations",
              figures.failures > 0 ? "bad" : "") +
         Card(std::to_string(figures.losses), "met a lost device",
              figures.losses > 0 ? "bad" : "") +
         Card(std::to_string(figures.sent), "bytes of requests") +
         Card(std::to_string(figures.received), "bytes of replies") + Card(length, "milliseconds") +
         "</div>\n";
}

// How busy the device was over time, failures in front.
std::string Timeline(const Report& report) {
  if (report.operations.empty()) return "";
  std::array<std::size_t, kBins> all{};
  std::array<std::size_t, kBins> failed{};
  const auto start = report.operations.front().start;
  const auto length = std::max<std::int64_t>(1, (report.operations.back().end - start).count());
  for (const OperationRecord& record : report.operations) {
    const double share =
        static_cast<double>((record.start - start).count()) / static_cast<double>(length);
    const auto bin = static_cast<std::size_t>(std::clamp(share, 0.0, 0.999999) * kBins);
    ++all[bin];
    if (record.error != 0) ++failed[bin];
  }
  const std::size_t most = *std::max_element(all.begin(), all.end());
  const auto bar = [&](std::size_t bin, std::size_t count, const char* kind) {
    const std::size_t height = std::max<std::size_t>(3, count * 56 / most);
    return "<rect class=\"" + std::string(kind) + "\" x=\"" + std::to_string(bin * 5) + "\" y=\"" +
           std::to_string(64 - height) + "\" width=\"4\" height=\"" + std::to_string(height) +
           "\"/>";
  };
  std::string svg =
      "<svg viewBox=\"0 0 1000 64\" preserveAspectRatio=\"none\" role=\"img\" "
      "aria-label=\"operations over time\">";
  for (std::size_t bin = 0; bin < kBins; ++bin) {
    if (all[bin] > 0) svg += bar(bin, all[bin], "ok");
    if (failed[bin] > 0) svg += bar(bin, failed[bin], "no");
  }
  return svg +
         "</svg>\n<div class=\"axis\"><span>0 ms</span><span>operations over time, failed "
         "ones in red</span><span>" +
         report.Milliseconds(report.operations.back().end) + " ms</span></div>\n";
}

struct ConnectionLine {
  std::string client = "-";
  int descriptor = -1;
  std::size_t first = 0;
  std::size_t operations = 0;
  std::size_t failures = 0;
  std::string end = "open until the end";
};

std::string Connections(const Report& report) {
  std::map<std::uint64_t, ConnectionLine> lines;
  for (std::size_t i = 0; i < report.operations.size(); ++i) {
    const OperationRecord& record = report.operations[i];
    if (record.connection == 0) continue;
    ConnectionLine* line = &lines[record.connection];
    if (line->operations++ == 0) line->first = i;
    if (!record.client.empty()) line->client = record.client;
    line->descriptor = std::max(line->descriptor, record.descriptor);
    line->failures += record.error != 0 ? 1 : 0;
    if (record.operation == Operation::kClose) {
      line->end = record.why.empty() ? "closed" : record.why;
    }
  }
  std::string html =
      "<h2>Connections</h2>\n<table><tr><th>connection</th><th>client</th><th>descriptor</th>"
      "<th>opened, ms</th><th>operations</th><th>failed</th><th>end</th></tr>\n";
  std::size_t shown = 0;
  for (const auto& [number, line] : lines) {
    if (++shown > kMostConnections) break;
    const std::string first = std::to_string(line.first);
    html += "<tr><td><a href=\"#o" + first + "\">#" + std::to_string(number) + "</a></td><td>" +
            HtmlText(line.client) + "</td><td class=\"n\">" +
            (line.descriptor >= 0 ? std::to_string(line.descriptor) : "-") +
            "</td><td class=\"n\">" + report.Milliseconds(report.operations[line.first].start) +
            "</td><td class=\"n\">" + std::to_string(line.operations) + "</td><td class=\"n\">" +
            std::to_string(line.failures) + "</td><td>" + HtmlText(line.end) + "</td></tr>\n";
  }
  html += "</table>\n";
  if (lines.size() > kMostConnections) {
    html += "<p class=\"legend\">and " + std::to_string(lines.size() - kMostConnections) +
            " more connections</p>\n";
  }
  return html;
}

std::string Events(const Report& report) {
  std::string items;
  std::size_t count = 0;
  for (std::size_t i = 0; i < report.steps.size(); ++i) {
    const DiagramStep& step = report.steps[i];
    if (!step.remarkable || ++count > kMostEvents) continue;
    const std::string target =
        step.isOperation ? "o" + std::to_string(step.at) : "s" + std::to_string(i);
    items += "<li><span class=\"t\">" + report.Milliseconds(report.operations[step.at].end) +
             "</span><a" + (step.failed ? " class=\"no\"" : "") + " href=\"#" + target + "\">" +
             HtmlText(step.label) +
             (step.remark.empty() ? "" : " <i>" + HtmlText(step.remark) + "</i>") + "</a></li>\n";
  }
  if (count == 0) return "";
  if (count > kMostEvents) {
    items += "<li>and " + std::to_string(count - kMostEvents) + " more</li>\n";
  }
  return "<h2>What was out of the ordinary</h2>\n<ol class=\"events\">\n" + items + "</ol>\n";
}

}  // namespace

std::string ReportSummary(const Report& report) {
  std::string html = Cards(report) + Timeline(report);
  if (report.total > report.operations.size()) {
    html += "<p class=\"legend\">The page shows the first " +
            std::to_string(report.operations.size()) + " operations of " +
            std::to_string(report.total) + ".</p>\n";
  }
  return html + Connections(report) + Events(report);
}

}  // namespace zulisim
