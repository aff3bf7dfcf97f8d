#pragma once

#include <string>

namespace zulisim {

// `text` as what stands between the quotes of a JSON string, and as the content or the quoted
// attribute of an HTML element. Bytes that are no UTF-8 become U+FFFD, and HTML shows control
// characters but the line feed as such, so that no text can break what it stands in.
std::string JsonText(const std::string& text);
std::string HtmlText(const std::string& text);

}  // namespace zulisim
