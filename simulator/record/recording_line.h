#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/record/recording.h"
#include "simulator/scenario/values.h"

namespace zulisim {

struct RecordingWord {
  std::string text;
  std::uint32_t column = 1;
};

struct RecordingLine {
  std::uint32_t number = 0;
  std::vector<RecordingWord> words;  // without the comment
  std::string comment;
  bool ended = true;  // by a line feed
};

// `text` is one line, without its line feed.
RecordingLine SplitLine(const std::string& text, std::uint32_t number);

[[noreturn]] void FailAt(std::uint32_t line, std::uint32_t column, const std::string& message);

// The words of an operation, taken one after the other. What is wrong with one is thrown as a
// RecordingError at its place.
class RecordingWords {
 public:
  explicit RecordingWords(const RecordingLine& line) : line_(line) {}

  bool AtEnd() const { return next_ == line_.words.size(); }
  // Takes the next word if it is `sign`.
  bool TakeIf(const char* sign);
  const RecordingWord& Take(const char* what);
  void TakeSign(const char* sign);
  std::uint64_t Number(const char* what, std::uint64_t highest);
  // Throws when there is one word more.
  void TakeEnd();

  // Calls `parse` with the next word; a std::invalid_argument is reported there.
  template <typename Function>
  auto Parse(const char* what, Function parse) {
    const RecordingWord& word = Take(what);
    try {
      return parse(word.text);
    } catch (const std::invalid_argument& error) {
      FailAt(line_.number, word.column, error.what());
    }
  }

 private:
  const RecordingLine& line_;
  std::size_t next_ = 0;
};

}  // namespace zulisim
