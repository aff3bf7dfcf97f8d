#include "simulator/output/report_page.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <map>

#include <nlohmann/json.hpp>

#include "common/hex.h"
#include "common/text.h"
#include "simulator/output/transcript.h"

namespace zulisim {
namespace {

constexpr std::size_t kMostEvents = 100;  // of a list
constexpr std::size_t kMostConnections = 50;

// An ordinary run of more steps is folded but for its beginning and end, in pieces that a reader
// can scan.
constexpr std::size_t kLongRun = 32;
constexpr std::size_t kShownOfRun = 12;
constexpr std::size_t kPiece = 400;

// The policy of the page admits no script but that of this hash.
constexpr const char* kScriptHash = "3UZsyXGOr+WT8vrZjEg+L8obu3UA2j8ba3X8eRgih3g=";
constexpr const char* kScript = R"(
const failures = [...document.querySelectorAll('.f')];
let at = -1;
addEventListener('keydown', event => {
  const step = {n: 1, p: -1}[event.key];
  if (!step || !failures.length || event.ctrlKey || event.altKey || event.metaKey) return;
  if (failures[at]) failures[at].classList.remove('here');
  at = (Math.max(at, step - 1 ? 0 : -1) + step + failures.length) % failures.length;
  const failure = failures[at];
  for (let fold = failure.closest('.fold'); fold; fold = fold.parentElement.closest('.fold'))
    fold.open = true;
  failure.classList.add('here');
  document.body.className = 'whole';  // or what is above would move once it shows
  failure.scrollIntoView({block: 'center'});
});
)";

constexpr const char* kStyle = R"(
:root{color-scheme:light dark;--a:7%;--c:93%;--bg:#fbfbfc;--fg:#1d2433;--dim:#667085;--line:#d5dae3;
--card:#fff;--out:#1f5fbf;--in:#197a4b;--guess:#8a6fb5;
--bad:#c02626;--badbg:#fdecec;--note:#9a5b00;--notebg:#fff4df;--hit:#fff3b0}
@media(prefers-color-scheme:dark){:root{--bg:#12151b;--fg:#e4e8ef;--dim:#98a2b3;--line:#333b49;
--card:#1a1f28;--out:#78aef5;--in:#62c793;--guess:#b9a3e0;--bad:#ff8a80;--badbg:#3a1d1f;
--note:#ffc46b;--notebg:#352a15;--hit:#4d4519}}
*{box-sizing:border-box}
body{margin:0 auto;padding:24px 28px 80px;max-width:1240px;background:var(--bg);color:var(--fg);
font:14px/1.45 system-ui,"Segoe UI",Roboto,"DejaVu Sans",sans-serif}
h1{font-size:22px;margin:0 0 2px}h2{font-size:16px;margin:30px 0 8px}
dl.head{display:grid;grid-template-columns:max-content 1fr;gap:2px 16px;margin:8px 0 18px}
dl.head dt{color:var(--dim)}
dl.head dd{margin:0;overflow:auto;max-height:4.5em;overflow-wrap:anywhere}
kbd{border:1px solid var(--line);border-bottom-width:2px;border-radius:4px;padding:0 5px;
background:var(--card);font:inherit;font-size:12px}
.wide{overflow-x:auto}
code,pre,td.n,.t,.log{font-family:ui-monospace,"DejaVu Sans Mono",Menlo,Consolas,monospace}
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
.r,.lanes{display:grid;grid-template-columns:236px 1fr}
.lanes{position:sticky;top:0;z-index:2;background:var(--bg);border-bottom:1px solid var(--line);
padding:8px 0;font-weight:600}
.lanes div{position:relative;height:20px}
.lanes span{position:absolute;transform:translateX(-50%);white-space:nowrap}
.lanes .a{left:var(--a)}.lanes .b{left:50%}.lanes .c{left:var(--c)}
.diagram{position:relative}
.r{list-style:none;align-items:stretch;min-height:27px;content-visibility:auto;
contain-intrinsic-size:auto 27px}
.whole .r{content-visibility:visible}
summary.r{cursor:pointer}summary.r::-webkit-details-marker{display:none}
summary.r:hover,.fold>summary:hover{background:color-mix(in srgb,var(--out) 8%,transparent)}
:target,.here{background:var(--hit);scroll-margin-top:60px}
.t{color:var(--dim);font-size:11px;padding:9px 8px 0 0;display:flex;flex-wrap:wrap;gap:0 8px}
.t b{min-width:52px;text-align:right;font-weight:400}
.t i{font-style:normal;min-width:62px;text-align:right}
.d{display:grid;grid-template-columns:var(--a) calc(50% - var(--a)) calc(50% - var(--a)) var(--a);
align-items:end;padding-bottom:5px;background:
linear-gradient(var(--line),var(--line)) 0 0/1px 100% no-repeat,
linear-gradient(var(--line),var(--line)) 0 0/1px 100% no-repeat,
linear-gradient(var(--line),var(--line)) 0 0/1px 100% no-repeat;
background-position-x:var(--a),50%,var(--c)}
.x{grid-area:1/3;position:relative;border-bottom:1.5px solid var(--out);color:var(--out);
padding:4px 12px 1px;font-size:12.5px;line-height:17px;text-align:center;overflow-wrap:anywhere}
.x::after{content:"";position:absolute;right:0;bottom:-5px;border:solid transparent;
border-width:4.5px 0 4.5px 8px;border-left-color:currentcolor}
.x.l::after{right:auto;left:0;border-width:4.5px 8px 4.5px 0;border-right-color:currentcolor}
.x.g{grid-area:1/2;border-bottom-style:dashed;border-color:var(--guess);color:var(--guess)}
.x.in{border-color:var(--in);color:var(--in)}
.x.neg{border-color:var(--note);color:var(--note)}
.x.bad{border-color:var(--bad);color:var(--bad)}
.f .x.bad{font-weight:600}
.why,.next{grid-area:1/2;padding:4px 10px 0 8px;text-align:right;font-size:12px;line-height:17px;
color:var(--bad);overflow-wrap:anywhere}
.next{grid-area:1/3;text-align:left}
.why.w{color:var(--note)}
.note{grid-area:1/2/auto/4;justify-self:center;margin-top:4px;background:var(--notebg);
color:var(--note);border:1px solid var(--note);border-radius:10px;padding:0 10px;font-size:12px;
line-height:17px;overflow-wrap:anywhere}
.log{grid-area:1/1/auto/5;padding:4px 12px 0;font-size:11.5px;line-height:16px;color:var(--dim);
overflow-wrap:anywhere}
.log span{background:var(--bg)}
.k{border:1px solid var(--line);background:var(--bg);border-radius:7px;padding:0 5px;
overflow-wrap:anywhere;align-self:start}
.bytes{margin:0 0 8px 236px;background:var(--card);border:1px solid var(--line);border-radius:8px;
padding:8px 14px;overflow:auto;color:var(--dim);font-size:13px;overflow-wrap:anywhere}
.bytes pre{margin:6px 0 0;color:var(--fg);font-size:12.5px}
.fold>summary,.gap{margin:5px 0 5px 236px;padding:5px 14px;border:1px dashed var(--line);
border-radius:8px;color:var(--dim);background:var(--card)}
.gap{border:0;background:repeating-linear-gradient(135deg,var(--card) 0 8px,var(--bg) 8px 16px);
text-align:center}
.fold>summary{cursor:pointer;list-style:none}
.fold>summary::before{content:"\25b8\00a0\00a0"}.fold[open]>summary::before{content:"\25be\00a0\00a0"}
@media(max-width:820px){:root{--a:5%;--c:95%}body{padding:14px 12px 60px}
.r,.lanes{grid-template-columns:1fr}.lanes>:first-child{display:none}
.lanes .a{left:0;transform:none}.lanes .c{left:auto;right:0;transform:none}
.t b,.t i{min-width:0}.bytes,.fold>summary,.gap{margin-left:0}
.bytes pre{white-space:pre-wrap;font-size:11px}
.t:empty{display:none}th,td{padding:3px 5px;font-size:12px}.cards div{min-width:0;flex:1 0 40%}
dl.head{grid-template-columns:1fr}}
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

using Entry = Report::Entry;

// The page in HTML. It refers to nothing outside of itself.
class Page {
 public:
  explicit Page(const Report& report) : report_(report) {
    for (const Entry& entry : report_.entries) {
      for (const DiagramStep& step : entry.steps) {
        if (step.IsDriverFailure()) failures_.push_back(rows_.size());
        rows_.push_back({&entry, &step});
      }
    }
  }

  std::string Text() const {
    return R"(<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8"/>
<meta name="viewport" content="width=device-width,initial-scale=1"/>
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'; script-src 'sha256-)" +
           std::string(kScriptHash) + "'\"/>\n" + Element("title", HtmlText(report_.head.program)) +
           Element("style", kStyle) + "</head>\n<body>\n<h1>Device operations</h1>\n" + Head() +
           Cards() + Failures() + Others() + Connections() + Diagram() +
           Element("script", kScript) + "</body></html>\n";
  }

 private:
  struct Row {
    const Entry* entry;
    const DiagramStep* step;
  };

  // The time since the first operation.
  std::string Milliseconds(std::chrono::nanoseconds at) const {
    char text[40];
    const auto since = static_cast<double>((at - report_.start).count());
    std::snprintf(text, sizeof(text), "%.3f", since / 1e6);
    return text;
  }

  // Where a row stands in the page: operations by their number in the run, others by their place.
  std::string Identifier(std::size_t row) const {
    const Row& at = rows_[row];
    return at.step->isOperation ? "o" + std::to_string(at.entry->record.sequence)
                                : "s" + std::to_string(row);
  }

  std::string Link(const std::string& identifier, const std::string& attributes,
                   const std::string& content) const {
    return Element("a" + attributes + " href=\"#" + identifier + "\"", content);
  }

  std::string Head() const {
    std::string items;
    const auto item = [&items](const char* title, const std::string& text, const char* tag) {
      if (!text.empty())
        items += Element("dt", title) + Element("dd", Element(tag, HtmlText(text)));
    };
    item("program", report_.head.program, "code");
    item("instructions", report_.head.instructions, "code");
    if (report_.exitStatus) {
      item("exit status", std::to_string(*report_.exitStatus), "span");
    }
    item("written by", report_.head.version, "span");
    item("date", report_.head.date, "span");
    return Element("dl class=\"head\"", items) + "\n";
  }

  std::string Cards() const {
    const auto card = [](const std::string& figure, const char* what, const char* kind = "") {
      return Element(std::string("div class=\"") + kind + "\"", Element("b", figure) + what);
    };
    const auto count = [&card](auto figure, const char* what, const char* kind = "") {
      return card(std::to_string(figure), what, figure > 0 ? kind : "");
    };
    const Report::Counts& counts = report_.counts;
    return Element("div class=\"cards\"",
                   count(counts.operations, "operations") + count(counts.commands, "commands") +
                       count(counts.failedCommands, "calls failed for the driver", "bad") +
                       count(counts.negative, "negative statuses", "warn") +
                       count(counts.failedOperations, "failed operations", "warn") +
                       count(counts.losses, "met a lost device", "warn") +
                       count(counts.sent, "bytes of requests") +
                       count(counts.received, "bytes of replies") +
                       card(Milliseconds(report_.end), "milliseconds")) +
           "\n";
  }

  bool Shows(std::uint64_t sequence) const {
    return std::any_of(rows_.begin(), rows_.end(), [sequence](const Row& row) {
      return row.step->isOperation && row.entry->record.sequence == sequence;
    });
  }

  std::string Connections() const {
    const auto number = [](const std::string& text) { return Element("td class=\"n\"", text); };
    std::string rows =
        "<tr><th>connection</th><th>client</th><th>descriptor</th><th>opened, ms</th>"
        "<th>operations</th><th>failed</th><th>end</th></tr>\n";
    std::size_t shown = 0;
    for (const auto& [key, connection] : report_.connections) {
      if (++shown > kMostConnections) break;
      const std::string name = "#" + std::to_string(key);
      const std::uint64_t first = connection.firstSequence;
      const int descriptor = connection.descriptor;
      rows += Element("tr", Element("td", Shows(first) ? Link("o" + std::to_string(first), "", name)
                                                       : name) +
                                Element("td", HtmlText(connection.client)) +
                                number(descriptor < 0 ? "-" : std::to_string(descriptor)) +
                                number(Milliseconds(connection.opened)) +
                                number(std::to_string(connection.operations)) +
                                number(std::to_string(connection.failures)) +
                                Element("td", HtmlText(connection.end))) +
              "\n";
    }
    return "<h2>Connections</h2>\n" + Element("div class=\"wide\"", Element("table", rows)) + "\n" +
           More(report_.connections.size(), kMostConnections, "p class=\"legend\"", " connections");
  }

  // A list of rows; of a long one, the beginning and the end.
  std::string List(const std::vector<std::size_t>& rows) const {
    std::string items;
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (rows.size() > kMostEvents && i == kMostEvents / 2) {
        const std::size_t left = rows.size() - kMostEvents;
        items +=
            Element("li", Element("span", "") + "and " + std::to_string(left) + " more") + "\n";
        i += left;
      }
      const Row& row = rows_[rows[i]];
      std::string text = HtmlText(row.step->label);
      if (!row.step->remark.empty()) text += " " + Element("i", HtmlText(row.step->remark));
      items += Element("li", Element("span class=\"t\"", Milliseconds(row.entry->record.end)) +
                                 Link(Identifier(rows[i]), row.step->failed ? " class=\"no\"" : "",
                                      text)) +
               "\n";
    }
    return Element("ol class=\"events\"", items) + "\n";
  }

  std::string Failures() const {
    const std::uint64_t all = report_.counts.failedCommands;
    if (all == 0) return "";
    return "<h2>What failed for the driver</h2>\n" + List(failures_) +
           Element("p class=\"legend\"", Element("kbd", "n") + " leads to the next of them, " +
                                             Element("kbd", "p") + " to the one before.") +
           "\n" + More(all, failures_.size(), "p class=\"legend\"", " that the page does not show");
  }

  std::string Others() const {
    std::vector<std::size_t> rows;
    for (std::size_t i = 0; i < rows_.size(); ++i) {
      if (rows_[i].step->remarkable && !rows_[i].step->IsDriverFailure()) rows.push_back(i);
    }
    return rows.empty() ? "" : "<h2>What else was out of the ordinary</h2>\n" + List(rows);
  }

  static std::string Arrow(const DiagramStep& step) {
    using Kind = DiagramStep::Kind;
    if (step.kind == Kind::kNote) return Element("span class=\"note\"", HtmlText(step.label));
    if (step.kind == Kind::kLog) {
      return Element("div class=\"log\"", Element("span", HtmlText(step.label)));
    }
    std::string kind = "x";
    if (step.inferred) kind += " g";
    if (step.kind == Kind::kToDriver) kind += " l";
    if (step.kind == Kind::kFromEngine) kind += " l in";
    if (step.failed) kind += " bad";
    if (step.negative) kind += " neg";
    const std::string arrow = Element("div class=\"" + kind + "\"", HtmlText(step.label));
    if (step.remark.empty()) return arrow;
    const std::string side = std::string("span class=\"why") + (step.failed ? "" : " w") + "\"";
    return arrow + Element(side, HtmlText(step.remark));
  }

  // "KALO #2 fd 5"
  std::string Badge(const OperationRecord& record) const {
    const auto found = report_.connections.find(record.connection);
    if (found == report_.connections.end()) return "";
    std::string text = found->second.client + " #" + std::to_string(record.connection);
    if (record.descriptor >= 0) text += " fd " + std::to_string(record.descriptor);
    return Element("span class=\"k\"", HtmlText(text));
  }

  std::string Consequence(std::size_t row) const {
    const DiagramStep& step = *rows_[row].step;
    const auto next = std::upper_bound(failures_.begin(), failures_.end(), row);
    const bool leads = step.IsDriverFailure() && next != failures_.end();
    const std::string link =
        leads ? Element("span class=\"next\"", Link(Identifier(*next), "", "next failure")) : "";
    const char* kind = step.IsDriverFailure() ? "r f" : "r";
    return Element(
               std::string("div class=\"") + kind + "\" id=\"" + Identifier(row) + "\"",
               Element("div class=\"t\"", "") + Element("div class=\"d\"", Arrow(step) + link)) +
           "\n";
  }

  std::string RowText(std::size_t row) const {
    const DiagramStep& step = *rows_[row].step;
    if (!step.isOperation) return Consequence(row);
    const OperationRecord& record = rows_[row].entry->record;
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
    const std::string time = Element("b", std::to_string(record.sequence)) +
                             Element("i", Milliseconds(record.start)) + Badge(record);
    return Element("details id=\"" + Identifier(row) + "\"",
                   Element("summary class=\"r\"", Element("div class=\"t\"", time) +
                                                      Element("div class=\"d\"", Arrow(step))) +
                       Element("div class=\"bytes\"", bytes)) +
           "\n";
  }

  std::string Rows(std::size_t from, std::size_t to) const {
    std::string html;
    for (std::size_t i = from; i < to; ++i) html += RowText(i);
    return html;
  }

  // The next place from `at` on where a command begins, or `end`.
  std::size_t NextCommand(std::size_t at, std::size_t end) const {
    while (at < end && !rows_[at].step->beginsCommand) ++at;
    return at;
  }

  std::string OrdinaryRun(std::size_t from, std::size_t to) const {
    if (to - from <= kLongRun) return Rows(from, to);
    std::size_t at = NextCommand(from + kShownOfRun, to);
    const std::size_t folded = std::max(at, NextCommand(to - kShownOfRun, to));
    std::string html = Rows(from, at);
    while (at < folded) {
      const std::size_t end = NextCommand(std::min(at + kPiece, folded), folded);
      const OperationRecord& first = rows_[at].entry->record;
      const OperationRecord& last = rows_[end - 1].entry->record;
      const std::string title = "operations " + std::to_string(first.sequence) + " to " +
                                std::to_string(last.sequence) + ", " + Milliseconds(first.start) +
                                " to " + Milliseconds(last.end) + " ms";
      html += Element("details class=\"fold\"", Element("summary", title) + "\n" + Rows(at, end)) +
              "\n";
      at = end;
    }
    return html + Rows(folded, to);
  }

  // What is left out in front of a row; empty for nothing.
  std::string Gap(std::size_t row) const {
    if (row == 0 || rows_[row].entry->number <= rows_[row - 1].entry->number + 1) return "";
    const OperationRecord& before = rows_[row - 1].entry->record;
    const OperationRecord& after = rows_[row].entry->record;
    const std::uint64_t count = after.sequence - before.sequence - 1;
    return Element("div class=\"gap\"", common::Counted(count, "operation") + " left out") + "\n";
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
    for (std::size_t i = 0; i < rows_.size(); ++i) {
      const std::string gap = Gap(i);
      if (!gap.empty()) {
        html += OrdinaryRun(from, i) + gap;
        from = i;
      }
      if (!rows_[i].step->remarkable) continue;
      html += OrdinaryRun(from, i) + RowText(i);
      from = i + 1;
    }
    return html + OrdinaryRun(from, rows_.size()) + "</div>\n";
  }

  const Report& report_;
  std::vector<Row> rows_;
  std::vector<std::size_t> failures_;  // of the driver, among the rows
};

}  // namespace

std::string ReportPage(const Report& report) { return Page(report).Text(); }

}  // namespace zulisim
