#pragma once

#include <optional>
#include <string>

#include "simulator/scenario_file.h"

namespace zulisim {

// The first character of a TOML text that is not ASCII and stands neither in a string nor in a
// comment. No TOML has one there, and the parser's tables of characters take some of them for
// impossible, so such a text must not reach it. Strings are followed as far as the parser would
// get.
std::optional<Diagnostic> MisplacedCharacter(const std::string& text);

}  // namespace zulisim
