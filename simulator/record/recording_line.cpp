#include "simulator/record/recording_line.h"

#include <cctype>

namespace zulisim {
namespace {

constexpr const char* kShape =
    "NUMBER TIME CONNECTION OPERATION ... -> RESULT in TIME is the form of an operation";

}  // namespace

RecordingLine SplitLine(const std::string& text, std::uint32_t number) {
  constexpr const char* kBlanks = " \t\r";
  RecordingLine line;
  line.number = number;
  std::size_t at = text.find_first_not_of(kBlanks);
  while (at != std::string::npos) {
    // A connection such as "#1" begins with the sign of a comment, but has a digit behind it.
    if (text[at] == '#' &&
        (at + 1 == text.size() || isdigit(static_cast<unsigned char>(text[at + 1])) == 0)) {
      const std::size_t from = text.find_first_not_of(kBlanks, at + 1);
      if (from != std::string::npos) line.comment = text.substr(from);
      break;
    }
    const std::size_t end = text.find_first_of(kBlanks, at);
    line.words.push_back({text.substr(at, end - at), static_cast<std::uint32_t>(at + 1)});
    at = text.find_first_not_of(kBlanks, end);
  }
  return line;
}

void FailAt(std::uint32_t line, std::uint32_t column, const std::string& message) {
  throw RecordingError({line, column, message});
}

const RecordingWord& RecordingWords::Take(const char* what) {
  if (AtEnd()) {
    const RecordingWord& last = line_.words.back();
    FailAt(line_.number, last.column + static_cast<std::uint32_t>(last.text.size()),
           std::string(what) + " is missing; " + kShape);
  }
  return line_.words[next_++];
}

bool RecordingWords::TakeIf(const char* sign) {
  const bool found = !AtEnd() && line_.words[next_].text == sign;
  if (found) ++next_;
  return found;
}

void RecordingWords::TakeSign(const char* sign) {
  const RecordingWord& word = Take(Quoted(sign).c_str());
  if (word.text != sign) {
    FailAt(line_.number, word.column, Quoted(sign) + " is expected, not " + Quoted(word.text));
  }
}

std::uint64_t RecordingWords::Number(const char* what, std::uint64_t highest) {
  return Parse(what, [&](const std::string& text) { return ParseNumber(text, highest, what); });
}

void RecordingWords::TakeEnd() {
  if (AtEnd()) return;
  const RecordingWord& extra = line_.words[next_];
  FailAt(line_.number, extra.column, Quoted(extra.text) + " is too much; " + kShape);
}

}  // namespace zulisim
