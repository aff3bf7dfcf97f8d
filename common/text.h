#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace common {

// The text with "\xNN" for each byte that is not a printable ASCII character.
std::string Printable(std::string_view text);

// The same between single quotes, as messages name what the user wrote.
std::string Quoted(std::string_view text);

// "1 byte", "2 bytes"; `plural` is for nouns that take more than an s.
std::string Counted(std::size_t count, const std::string& noun, const std::string& plural = "");

// "KALO, FENU, SAB"
std::string Joined(const std::vector<std::string>& words, const std::string& separator = ", ");

// "; did you mean 'EIO'?" for the candidate that is most like `text`, in either case of letters;
// empty when none is near.
std::string NearestHint(std::string_view text, const std::vector<std::string>& candidates);

}  // namespace common
