#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace common {

// Returns the text with "\xNN" for each byte that is not a printable ASCII character.
std::string Printable(std::string_view text);

// The same in single quotes, for messages that quote the input.
std::string Quoted(std::string_view text);

// Returns "1 byte" or "2 bytes". `plural` is for irregular nouns.
std::string Counted(std::size_t count, const std::string& noun, const std::string& plural = "");

// "KALO, FENU, SAB"
std::string Joined(const std::vector<std::string>& words, const std::string& separator = ", ");

// Splits the text at the first of `separators`. The second part is nullopt if none occurs.
std::pair<std::string, std::optional<std::string>> SplitOnce(const std::string& text,
                                                             const std::string& separators);

// Returns "; did you mean 'EIO'?" with the candidate most similar to `text`, ignoring case, or an
// empty text if none is similar.
std::string NearestHint(std::string_view text, const std::vector<std::string>& candidates);

}  // namespace common
