#include "simulator/output/report.h"

#include <cstdio>

#include <nlohmann/json.hpp>

namespace zulisim {
namespace {

std::string ValidUtf8(const std::string& text) {
  using nlohmann::json;
  const std::string quoted = json(text).dump(-1, ' ', false, json::error_handler_t::replace);
  return json::parse(quoted).get<std::string>();
}

}  // namespace

std::string Report::Milliseconds(std::chrono::nanoseconds at) const {
  const auto start = operations.empty() ? at : operations.front().start;
  char text[40];
  std::snprintf(text, sizeof(text), "%.3f", static_cast<double>((at - start).count()) / 1e6);
  return text;
}

std::string HtmlText(const std::string& text) {
  std::string html;
  for (const char c : ValidUtf8(text)) {
    const auto code = static_cast<unsigned char>(c);
    if (c == '&') {
      html += "&amp;";
    } else if (c == '<') {
      html += "&lt;";
    } else if (c == '>') {
      html += "&gt;";
    } else if (c == '"') {
      html += "&quot;";
    } else if (c == '\'') {
      html += "&#39;";
    } else if (code == 0x7f) {
      html += "\xe2\x90\xa1";
    } else if (code < ' ' && c != '\n') {
      html += "\xe2\x90" + std::string(1, static_cast<char>(0x80 + code));  // control pictures
    } else {
      html += c;
    }
  }
  return html;
}

}  // namespace zulisim
