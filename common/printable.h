#pragma once

#include <string>
#include <string_view>

namespace kaloctl {

// The text with "\xNN" for each byte that is no printable ASCII character.
std::string Printable(std::string_view text);

}  // namespace kaloctl
