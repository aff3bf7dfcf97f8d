#include "common/text.h"

#include <algorithm>
#include <cctype>

#include "common/format.h"

namespace common {
namespace {

char Lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

// Returns the edit distance, ignoring case: the number of characters to insert, delete, replace or
// swap with their neighbour.
std::size_t Distance(std::string_view from, std::string_view to) {
  std::vector<std::vector<std::size_t>> least(from.size() + 1,
                                              std::vector<std::size_t>(to.size() + 1));
  const auto same = [&](std::size_t i, std::size_t j) { return Lower(from[i]) == Lower(to[j]); };
  for (std::size_t i = 0; i <= from.size(); ++i) {
    for (std::size_t j = 0; j <= to.size(); ++j) {
      least[i][j] = i + j;
      if (i == 0 || j == 0) continue;
      const std::size_t replaced = least[i - 1][j - 1] + (same(i - 1, j - 1) ? 0 : 1);
      least[i][j] = std::min({least[i - 1][j] + 1, least[i][j - 1] + 1, replaced});
      const bool swapped = i > 1 && j > 1 && same(i - 1, j - 2) && same(i - 2, j - 1);
      if (swapped) least[i][j] = std::min(least[i][j], least[i - 2][j - 2] + 1);
    }
  }
  return least[from.size()][to.size()];
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string printable;
  for (const char c : text) {
    const bool plain = c >= 0x20 && c < 0x7f;
    printable += plain ? std::string(1, c) : Format("\\x{:02x}", static_cast<unsigned char>(c));
  }
  return printable;
}

std::string Quoted(std::string_view text) { return "'" + Printable(text) + "'"; }

std::string Counted(std::size_t count, const std::string& noun, const std::string& plural) {
  const std::string several = plural.empty() ? noun + "s" : plural;
  return std::to_string(count) + " " + (count == 1 ? noun : several);
}

std::string Joined(const std::vector<std::string>& words, const std::string& separator) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : separator) + word;
  return text;
}

std::pair<std::string, std::optional<std::string>> SplitOnce(const std::string& text,
                                                             const std::string& separators) {
  const std::size_t position = text.find_first_of(separators);
  if (position == std::string::npos) return {text, std::nullopt};
  return {text.substr(0, position), text.substr(position + 1)};
}

std::string NearestHint(std::string_view text, const std::vector<std::string>& candidates) {
  if (text.empty() || text.size() > 40) return "";
  std::size_t least = std::max<std::size_t>(1, text.size() / 3) + 1;
  std::string nearest;
  for (const std::string& candidate : candidates) {
    const std::size_t distance = Distance(text, candidate);
    if (distance >= least) continue;
    least = distance;
    nearest = candidate;
  }
  return nearest.empty() ? "" : "; did you mean " + Quoted(nearest) + "?";
}

}  // namespace common
