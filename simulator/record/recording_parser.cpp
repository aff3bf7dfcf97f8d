#include <stdexcept>
#include <utility>

#include "simulator/record/recording.h"
#include "simulator/record/recording_line.h"
#include "simulator/record/recording_operation.h"
#include "simulator/scenario/values.h"

namespace zulisim {
namespace {

constexpr const char* kMark = "zulisim recording ";

class Parser {
 public:
  explicit Parser(const std::string& text) : text_(text) {}

  Recording Parse() {
    ParseHead();
    while (at_ < text_.size() && !ended_) ParseLine(NextLine());
    while (at_ < text_.size()) {
      const RecordingLine line = NextLine();
      if (!line.words.empty()) FailAt(line.number, 1, "nothing may follow the line 'end'");
    }
    if (!ended_) DropUnfinished();
    return std::move(recording_);
  }

 private:
  RecordingLine NextLine() {
    const std::size_t feed = text_.find('\n', at_);
    const std::size_t end = feed == std::string::npos ? text_.size() : feed;
    RecordingLine line = SplitLine(text_.substr(at_, end - at_), ++number_);
    line.ended = feed != std::string::npos;
    at_ = end + 1;
    return line;
  }

  void ParseHead() {
    const std::size_t feed = text_.find('\n');
    if (!IsRecording(text_) || feed == std::string::npos) {
      FailAt(
          1, 1,
          std::string("no recording: the first line is not ") + Quoted(kMark + std::string("1")));
    }
    const RecordingLine line = NextLine();
    if (line.words.size() != 3 || line.words[2].text != "1") {
      FailAt(1, line.words.back().column,
             Quoted(line.words.back().text) + " is no version that this zulisim knows; it knows 1");
    }
  }

  void ParseLine(const RecordingLine& line) {
    if (line.words.empty()) return;
    const std::string& first = line.words.front().text;
    if (first == "end" && line.words.size() == 1) {
      CheckFinished();
      ended_ = true;
    } else if (!line.ended) {
      return;  // a line without its end is the place of a cut
    } else if (first == "client") {
      ParseClient(line);
    } else if (first == ">" || first == "<") {
      ParseBytes(line);
    } else {
      CheckFinished();
      recording_.operations.push_back({ParseOperationLine(line), line.number});
    }
  }

  void ParseClient(const RecordingLine& line) {
    if (line.words.size() < 3) FailAt(line.number, 1, "'client NAME GUID' is expected");
    Client client;
    client.name = line.words[1].text;
    for (std::size_t i = 2; i + 1 < line.words.size(); ++i) client.name += " " + line.words[i].text;
    try {
      client.guid = ParseGuid(line.words.back().text);
    } catch (const std::invalid_argument& error) {
      FailAt(line.number, line.words.back().column, error.what());
    }
    recording_.clients.push_back(std::move(client));
  }

  void ParseBytes(const RecordingLine& line) {
    if (recording_.operations.empty()) FailAt(line.number, 1, "bytes stand behind an operation");
    RawOperation* raw = &recording_.operations.back().raw;
    const bool isInput = line.words.front().text == ">";
    Bytes* bytes = isInput ? &raw->input : &raw->output;
    const std::size_t most = isInput ? InputSize(*raw) : OutputSize(*raw);
    for (std::size_t i = 1; i < line.words.size(); ++i) {
      const RecordingWord& word = line.words[i];
      try {
        const Bytes more = ParseHex(word.text, "a piece of a message");
        bytes->insert(bytes->end(), more.begin(), more.end());
      } catch (const std::invalid_argument& error) {
        FailAt(line.number, word.column, error.what());
      }
      if (bytes->size() > most) {
        FailAt(line.number, word.column,
               "too many bytes: the operation of line " +
                   std::to_string(recording_.operations.back().line) + " has " +
                   std::to_string(most) + " behind " + Quoted(line.words.front().text));
      }
    }
  }

  bool IsFinished() const {
    if (recording_.operations.empty()) return true;
    const RawOperation& raw = recording_.operations.back().raw;
    return raw.input.size() == InputSize(raw) && raw.output.size() == OutputSize(raw);
  }

  void CheckFinished() const {
    if (IsFinished()) return;
    const RawOperation& raw = recording_.operations.back().raw;
    const bool input = raw.input.size() != InputSize(raw);
    FailAt(recording_.operations.back().line, 1,
           "the operation has " + std::to_string(input ? InputSize(raw) : OutputSize(raw)) +
               " bytes behind " + (input ? "'>'" : "'<'") + ", but " +
               std::to_string(input ? raw.input.size() : raw.output.size()) + " are there");
  }

  void DropUnfinished() {
    recording_.cut = true;
    if (!IsFinished()) recording_.operations.pop_back();
  }

  const std::string& text_;
  std::size_t at_ = 0;
  std::uint32_t number_ = 0;
  bool ended_ = false;
  Recording recording_;
};

}  // namespace

bool IsRecording(const std::string& text) { return text.rfind(kMark, 0) == 0; }

Recording ParseRecording(const std::string& text) { return Parser(text).Parse(); }

}  // namespace zulisim
