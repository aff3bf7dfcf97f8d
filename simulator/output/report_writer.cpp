#include "simulator/output/report_writer.h"

#include <exception>
#include <iterator>
#include <utility>

#include "simulator/output/report_diagram.h"
#include "simulator/output/report_summary.h"

namespace zulisim {
namespace {

// A browser shows so many without pain.
constexpr std::size_t kMostOperations = 20000;

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
svg{display:block;width:100%;height:64px;background:var(--card);border:1px solid var(--line);
border-radius:8px;margin-top:12px}
svg .ok{fill:var(--out);opacity:.5}svg .no{fill:var(--bad)}
.axis{display:flex;justify-content:space-between;color:var(--dim);font-size:12px}
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

// Refers to nothing outside of itself.
std::string Page(const Report& report) {
  const std::string name = HtmlText(report.name);
  return R"(<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8"/>
<meta name="viewport" content="width=device-width,initial-scale=1"/>
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'"/>
<title>)" +
         name + "</title>\n<style>" + kStyle +
         "</style></head>\n<body>\n<h1>Device operations</h1>\n<p class=\"sub\"><code>" + name +
         "</code></p>\n" + ReportSummary(report) + ReportDiagram(report) + "</body></html>\n";
}

}  // namespace

ReportWriter::ReportWriter(TextSink sink, const std::string& name) : sink_(std::move(sink)) {
  report_.name = name;
}

ReportWriter::~ReportWriter() {
  try {
    sink_(Page(report_));
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
    if (bytes->size() > kReportedBytes)
      *bytes = Bytes(bytes->begin(), bytes->begin() + kReportedBytes);
  }
}

}  // namespace zulisim
