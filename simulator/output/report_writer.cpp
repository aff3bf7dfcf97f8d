#include "simulator/output/report_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <iterator>
#include <map>
#include <utility>

#include <nlohmann/json.hpp>

#include "common/hex.h"
#include "common/text.h"
#include "simulator/output/transcript.h"

namespace zulisim {
namespace {

// A browser shows so many without pain.
constexpr std::size_t kMostOperations = 20000;
constexpr std::size_t kMostEvents = 100;
constexpr std::size_t kMostConnections = 50;
constexpr std::size_t kMostBytes = 1024;  // of a message

// An ordinary run of more steps is folded but for its beginning, in pieces that a reader can scan.
constexpr std::size_t kLongRun = 32;
constexpr std::size_t kShownOfRun = 12;
constexpr std::size_t kPiece = 400;

constexpr const char* kStyle = R"(
:root{--bg:#fbfbfc;--fg:#1d2433;--dim:#667085;--line:#d5dae3;--card:#fff;--out:#1f5fbf;--in:#197a4b;
--guess:#8a6fb5;--bad:#c02626;--badbg:#fdecec;--note:#9a5b00;--notebg:#fff4df;--hit:#fff3b0}
@media(prefers-color-scheme:dark){:root{--bg:#12151b;--fg:#e4e8ef;--dim:#98a2b3;--line:#333b49;
--card:#1a1f28;--out:#78aef5;--in:#62c793;--guess:#b9a3e0;--bad:#ff8a80;--badbg:#3a1d1f;
--note:#ffc46b;--notebg:#352a15;--hit:#4d4519}}
*{box-sizing:border-box}
body{margin:0 auto;padding:24px 28px 80px;max-width:1240px;background:var(--bg);color:var(--fg);
font:14px/1.45 system-ui,"Segoe UI",Roboto,"DejaVu Sans",sans-serif}
h1{font-size:22px;margin:0 0 2px}h2{font-size:16px;margin:30px 0 8px}
.sub{color:var(--dim);margin:0 0 18px;overflow-wrap:anywhere}
code,pre,td.n,.t{font-family:ui-monospace,"DejaVu Sans Mono",Menlo,Consolas,monospace}
.cards{display:flex;flex-wrap:wrap;gap:10px}
.cards div{background:var(--card);border:1px solid var(--line);border-radius:8px;padding:8px 14px;
min-width:112px;color:var(--dim);font-size:12px}
.cards b{display:block;font-size:20px;color:var(--fg);font-weight:600}
.cards .bad b{color:var(--bad)}.cards .warn b{color:var(--note)}
table{border-collapse:collapse;background:var(--card);border:1px solid var(--line);font-size:13px}
th,td{text-align:left;padding:3px 12px;border-bottom:1px solid var(--line)}
th{color:var(--dim);font-weight:500}td.n{text-align:right}
ol.events{margin:0;padding:0;list-style:none;columns:2 420px;column-gap:28px}
ol.events li{break-inside:avoid;padding:2px 0;overflow-wrap:anywhere;display:grid;
grid-template-columns:80px 1fr}
ol.events .t{padding:0;font-size:12px;line-height:20px;text-align:right;margin-right:12px}
ol.events i{font-style:normal;color:var(--dim)}
ol.events .no{color:var(--bad)}
a{color:var(--out);text-decoration:none}a:hover{text-decoration:underline}
.legend{color:var(--dim);font-size:13px;max-width:80ch}
.r,.lanes{display:grid;grid-template-columns:128px 1fr}
.lanes{position:sticky;top:0;z-index:2;background:var(--bg);border-bottom:1px solid var(--line);
padding:8px 0;font-weight:600}
.lanes div{position:relative;height:20px}
.lanes span{position:absolute;transform:translateX(-50%);white-space:nowrap}
.lanes .a{left:10%}.lanes .b{left:50%}.lanes .c{left:90%}
.diagram{position:relative}
.r{list-style:none;align-items:stretch;min-height:27px;content-visibility:auto;
contain-intrinsic-size:auto 27px}
summary.r{cursor:pointer}summary.r::-webkit-details-marker{display:none}
summary.r:hover,.fold>summary:hover{background:color-mix(in srgb,var(--out) 8%,transparent)}
:target{background:var(--hit);scroll-margin-top:60px}
.t{color:var(--dim);font-size:11px;padding-top:9px;white-space:nowrap;overflow:hidden}
.t b{display:inline-block;width:44px;text-align:right;margin-right:10px;font-weight:400}
.d{position:relative;background:
linear-gradient(var(--line),var(--line)) 10% 0/1px 100% no-repeat,
linear-gradient(var(--line),var(--line)) 50% 0/1px 100% no-repeat,
linear-gradient(var(--line),var(--line)) 90% 0/1px 100% no-repeat;
background-position-x:10%,50%,90%}
.x{position:absolute;bottom:5px;left:50%;width:40%;border-bottom:1.5px solid var(--out);
color:var(--out);padding:0 12px 1px;font-size:12.5px;line-height:17px;white-space:nowrap;
overflow:visible;text-align:center}
.x span{display:block;overflow:hidden;text-overflow:ellipsis}
.x::after{content:"";position:absolute;right:0;bottom:-5px;border:solid transparent;
border-width:4.5px 0 4.5px 8px;border-left-color:currentcolor}
.x.l::after{right:auto;left:0;border-width:4.5px 8px 4.5px 0;border-right-color:currentcolor}
.x.g{left:10%;border-bottom-style:dashed;border-color:var(--guess);color:var(--guess)}
.x.in{border-color:var(--in);color:var(--in)}
.x.neg{border-color:var(--note);color:var(--note)}
.x.bad{border-color:var(--bad);color:var(--bad)}.x.bad::after{border-left-color:var(--bad)}
.x.l.bad::after{border-right-color:var(--bad);border-left-color:transparent}
.why{position:absolute;left:10.6%;width:38.8%;bottom:4px;text-align:right;font-size:12px;
line-height:17px;color:var(--bad);white-space:nowrap;overflow:hidden;text-overflow:ellipsis}
.why.w{color:var(--note)}
.note{position:absolute;left:50%;bottom:3px;transform:translateX(-50%);background:var(--notebg);
color:var(--note);border:1px solid var(--note);border-radius:10px;padding:0 10px;font-size:12px;
line-height:17px;white-space:nowrap}
.k{font-size:11px;color:var(--dim);border:1px solid var(--line);background:var(--bg);
border-radius:7px;padding:0 5px;position:absolute;left:90.8%;bottom:5px;line-height:15px;
white-space:nowrap;max-width:9%;overflow:hidden;text-overflow:ellipsis}
.bytes{margin:0 0 8px 128px;background:var(--card);border:1px solid var(--line);border-radius:8px;
padding:8px 14px;overflow:auto;color:var(--dim);font-size:13px}
.bytes pre{margin:6px 0 0;color:var(--fg);font-size:12.5px}
.fold>summary{cursor:pointer;list-style:none;margin:5px 0 5px 128px;padding:5px 14px;
border:1px dashed var(--line);border-radius:8px;color:var(--dim);background:var(--card)}
.fold>summary::before{content:"\25b8\00a0\00a0"}.fold[open]>summary::before{content:"\25be\00a0\00a0"}
@media print{.lanes{position:static}.r{content-visibility:visible}}
)";

// `text` as the content or a quoted attribute of an HTML element, so that no text can break what it
// stands in: bytes that are not UTF-8 become U+FFFD, and control characters except the line feed
// are shown as pictures.
std::string HtmlText(const std::string& text) {
  using nlohmann::json;
  static const std::map<char, const char*> names = {{'&', "&amp;"},  {'<', "&lt;"},
                                                    {'>', "&gt;"},   {'"', "&quot;"},
                                                    {'\'', "&#39;"}, {'\x7f', "\xe2\x90\xa1"}};
  const std::string quoted = json(text).dump(-1, ' ', false, json::error_handler_t::replace);
  std::string html;
  for (const char c : json::parse(quoted).get<std::string>()) {
    const auto code = static_cast<unsigned char>(c);
    const auto name = names.find(c);
    if (name != names.end()) {
      html += name->second;
    } else if (code < ' ' && c != '\n') {
      html += "\xe2\x90" + std::string(1, static_cast<char>(0x80 + code));
    } else {
      html += c;
    }
  }
  return html;
}

// `tag` is a name, with attributes where it has any: "td class=\"n\"".
std::string Element(const std::string& tag, const std::string& content) {
  return "<" + tag + ">" + content + "</" + tag.substr(0, tag.find(' ')) + ">";
}

std::string More(std::size_t all, std::size_t shown, const char* tag, const char* what) {
  if (all <= shown) return "";
  return Element(tag, "and " + std::to_string(all - shown) + " more" + what) + "\n";
}

// The page in HTML. It refers to nothing outside of itself.
class Page {
 public:
  explicit Page(const ReportWriter::Report& report) : report_(report) {}

  std::string Text() const {
    return R"(<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8"/>
<meta name="viewport" content="width=device-width,initial-scale=1"/>
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'"/>
)" + Element("title", HtmlText(report_.name)) +
           Element("style", kStyle) + "</head>\n<body>\n<h1>Device operations</h1>\n" +
           Element("p class=\"sub\"", Element("code", HtmlText(report_.name))) + "\n" + Cards() +
           Omission() + Connections() + Events() + Diagram() + "</body></html>\n";
  }

 private:
  // The time since the first operation.
  std::string Milliseconds(std::chrono::nanoseconds at) const {
    const auto start = report_.operations.empty() ? at : report_.operations.front().start;
    char text[40];
    std::snprintf(text, sizeof(text), "%.3f", static_cast<double>((at - start).count()) / 1e6);
    return text;
  }

  std::string Cards() const {
    std::int64_t commands = 0, negative = 0, failures = 0, losses = 0, sent = 0, received = 0;
    for (const DiagramStep& step : report_.steps) commands += step.beginsCommand ? 1 : 0;
    for (const OperationRecord& record : report_.operations) {
      negative += record.status && IsNegative(*record.status) ? 1 : 0;
      failures += record.error != 0 ? 1 : 0;
      losses += record.error == ENODEV ? 1 : 0;
      if (record.error != 0) continue;
      if (record.operation == Operation::kWrite) sent += record.result;
      if (record.operation == Operation::kRead) received += record.result;
    }
    const auto card = [](const std::string& figure, const char* what, const char* kind = "") {
      return Element(std::string("div class=\"") + kind + "\"", Element("b", figure) + what);
    };
    const auto count = [&card](std::int64_t figure, const char* what, const char* kind = "") {
      return card(std::to_string(figure), what, figure > 0 ? kind : "");
    };
    const std::string length =
        report_.operations.empty() ? "0.000" : Milliseconds(report_.operations.back().end);
    return Element("div class=\"cards\"",
                   card(std::to_string(report_.total), "operations") + count(commands, "commands") +
                       count(negative, "negative statuses", "warn") +
                       count(failures, "failed operations", "bad") +
                       count(losses, "met a lost device", "bad") +
                       count(sent, "bytes of requests") + count(received, "bytes of replies") +
                       card(length, "milliseconds")) +
           "\n";
  }

  std::string Omission() const {
    if (report_.total <= report_.operations.size()) return "";
    return Element("p class=\"legend\"",
                   "The page shows the first " + std::to_string(report_.operations.size()) +
                       " operations of " + std::to_string(report_.total) + ".") +
           "\n";
  }

  std::string Connections() const {
    struct Connection {
      std::string client = "-";
      int descriptor = -1;
      std::size_t first = 0;
      std::size_t operations = 0;
      std::size_t failures = 0;
      std::string end = "open until the end";
    };
    std::map<std::uint64_t, Connection> connections;
    for (std::size_t i = 0; i < report_.operations.size(); ++i) {
      const OperationRecord& record = report_.operations[i];
      if (record.connection == 0) continue;
      Connection* connection = &connections[record.connection];
      if (connection->operations++ == 0) connection->first = i;
      if (!record.client.empty()) connection->client = record.client;
      connection->descriptor = std::max(connection->descriptor, record.descriptor);
      connection->failures += record.error != 0 ? 1 : 0;
      if (record.operation == Operation::kClose) {
        connection->end = record.why.empty() ? "closed" : record.why;
      }
    }
    const auto number = [](const std::string& text) { return Element("td class=\"n\"", text); };
    std::string rows =
        "<tr><th>connection</th><th>client</th><th>descriptor</th><th>opened, ms</th>"
        "<th>operations</th><th>failed</th><th>end</th></tr>\n";
    std::size_t shown = 0;
    for (const auto& [key, connection] : connections) {
      if (++shown > kMostConnections) break;
      const std::string link = "a href=\"#o" + std::to_string(connection.first) + "\"";
      const int descriptor = connection.descriptor;
      rows += Element("tr", Element("td", Element(link, "#" + std::to_string(key))) +
                                Element("td", HtmlText(connection.client)) +
                                number(descriptor < 0 ? "-" : std::to_string(descriptor)) +
                                number(Milliseconds(report_.operations[connection.first].start)) +
                                number(std::to_string(connection.operations)) +
                                number(std::to_string(connection.failures)) +
                                Element("td", HtmlText(connection.end))) +
              "\n";
    }
    return "<h2>Connections</h2>\n" + Element("table", rows) + "\n" +
           More(connections.size(), kMostConnections, "p class=\"legend\"", " connections");
  }

  std::string Events() const {
    std::string items;
    std::size_t count = 0;
    for (std::size_t i = 0; i < report_.steps.size(); ++i) {
      const DiagramStep& step = report_.steps[i];
      if (!step.remarkable || ++count > kMostEvents) continue;
      const std::string target =
          step.isOperation ? "o" + std::to_string(step.at) : "s" + std::to_string(i);
      const std::string remark =
          step.remark.empty() ? "" : " " + Element("i", HtmlText(step.remark));
      const std::string time = Milliseconds(report_.operations[step.at].end);
      items += Element("li", Element("span class=\"t\"", time) +
                                 Element(std::string("a") + (step.failed ? " class=\"no\"" : "") +
                                             " href=\"#" + target + "\"",
                                         HtmlText(step.label) + remark)) +
               "\n";
    }
    if (count == 0) return "";
    return "<h2>What was out of the ordinary</h2>\n" +
           Element("ol class=\"events\"", items + More(count, kMostEvents, "li", "")) + "\n";
  }

  static std::string Arrow(const DiagramStep& step) {
    using Kind = DiagramStep::Kind;
    if (step.kind == Kind::kNote) return Element("span class=\"note\"", HtmlText(step.label));
    std::string kind = "x";
    if (step.inferred) kind += " g";
    if (step.kind == Kind::kToDriver) kind += " l";
    if (step.kind == Kind::kFromEngine) kind += " l in";
    if (step.failed) kind += " bad";
    if (step.negative) kind += " neg";
    const std::string arrow =
        Element("div class=\"" + kind + "\"", Element("span", HtmlText(step.label)));
    if (step.remark.empty()) return arrow;
    const std::string remark = HtmlText(step.remark);
    return arrow + Element(std::string("span class=\"why") + (step.failed ? "" : " w") +
                               "\" title=\"" + remark + "\"",
                           remark);
  }

  std::string Row(std::size_t index) const {
    const DiagramStep& step = report_.steps[index];
    if (!step.isOperation) {
      return Element("div class=\"r\" id=\"s" + std::to_string(index) + "\"",
                     Element("div class=\"t\"", "") + Element("div class=\"d\"", Arrow(step))) +
             "\n";
    }
    const OperationRecord& record = report_.operations[step.at];
    std::string key = record.connection == 0 ? "" : "#" + std::to_string(record.connection);
    if (record.descriptor >= 0) key += " fd " + std::to_string(record.descriptor);
    const std::string time =
        Element("b", std::to_string(record.sequence)) + Milliseconds(record.start);
    std::string bytes = HtmlText(TranscriptLine(record)) + "<br/>took " +
                        std::to_string((record.end - record.start).count() / 1000) + " \xc2\xb5s";
    const Bytes message = record.Message();
    const std::size_t size = record.IsTransfer() ? static_cast<std::size_t>(record.result) : 0;
    if (!message.empty()) {
      std::string dump = common::HexDump(message);
      if (size > message.size()) {
        dump += "... and " + std::to_string(size - message.size()) + " more bytes\n";
      }
      bytes += Element("pre", HtmlText(dump));
    }
    return Element("details id=\"o" + std::to_string(step.at) + "\"",
                   Element("summary class=\"r\"",
                           Element("div class=\"t\"", time) +
                               Element("div class=\"d\"",
                                       Arrow(step) + Element("span class=\"k\"", key))) +
                       Element("div class=\"bytes\"", bytes)) +
           "\n";
  }

  std::string Rows(std::size_t from, std::size_t to) const {
    std::string html;
    for (std::size_t i = from; i < to; ++i) html += Row(i);
    return html;
  }

  // The next place from `at` on where a command begins, or `end`.
  std::size_t NextCommand(std::size_t at, std::size_t end) const {
    while (at < end && !report_.steps[at].beginsCommand) ++at;
    return at;
  }

  std::string OrdinaryRun(std::size_t from, std::size_t to) const {
    if (to - from <= kLongRun) return Rows(from, to);
    std::size_t at = NextCommand(from + kShownOfRun, to);
    std::string html = Rows(from, at);
    while (at < to) {
      const std::size_t end = NextCommand(std::min(at + kPiece, to), to);
      const OperationRecord& first = report_.operations[report_.steps[at].at];
      const OperationRecord& last = report_.operations[report_.steps[end - 1].at];
      const std::string title = "operations " + std::to_string(first.sequence) + " to " +
                                std::to_string(last.sequence) + ", " + Milliseconds(first.start) +
                                " to " + Milliseconds(last.end) + " ms";
      html += Element("details class=\"fold\"", Element("summary", title) + "\n" + Rows(at, end)) +
              "\n";
      at = end;
    }
    return html;
  }

  std::string Diagram() const {
    std::string html = R"(<h2>Sequence</h2>
<p class="legend">Solid arrows are device operations; each opens to show its bytes. Dashed arrows
are inferred from them: a device does not see the driver. Long runs without an event are folded.</p>
<div class="lanes"><div></div><div><span class="a">driver</span><span class="b">library</span>
<span class="c">engine</span></div></div>
<div class="diagram">
)";
    std::size_t from = 0;
    for (std::size_t i = 0; i < report_.steps.size(); ++i) {
      if (!report_.steps[i].remarkable) continue;
      html += OrdinaryRun(from, i) + Row(i);
      from = i + 1;
    }
    return html + OrdinaryRun(from, report_.steps.size()) + "</div>\n";
  }

  const ReportWriter::Report& report_;
};

}  // namespace

ReportWriter::ReportWriter(TextSink sink, const std::string& name) : sink_(std::move(sink)) {
  report_.name = name;
}

ReportWriter::~ReportWriter() {
  try {
    sink_(Page(report_).Text());
  } catch (const std::exception&) {
    // A run that is too long for its memory has its other files.
  }
}

void ReportWriter::OnOperation(const OperationRecord& record) {
  if (++report_.total > kMostOperations) return;
  std::vector<DiagramStep> steps = history_.Add(record, report_.operations.size());
  std::move(steps.begin(), steps.end(), std::back_inserter(report_.steps));
  report_.operations.push_back(record);
  for (Bytes* bytes : {&report_.operations.back().input, &report_.operations.back().output}) {
    if (bytes->size() > kMostBytes) *bytes = Bytes(bytes->begin(), bytes->begin() + kMostBytes);
  }
}

}  // namespace zulisim
