#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace common {

// One message of a log.
struct LogRecord {
  std::string prefix;    // "[00001234] 77": process id and tick; empty if the log lacks them
  std::string function;  // empty for text outside any message
  std::string tag;
  std::string text;  // without the line feed

  bool operator==(const LogRecord& other) const {
    return text == other.text && function == other.function && tag == other.tag &&
           prefix == other.prefix;
  }
};

// Splits a log into records. A record begins with "<function>:<digits>: ", where <function> is a
// function of the library, and ends at the end of the line or at the next record. Accepts the log
// in pieces of any size, and keeps only the text of the current record in memory.
class LogSplitter {
 public:
  using Consumer = std::function<void(LogRecord&&)>;

  explicit LogSplitter(Consumer consumer) : consumer_(std::move(consumer)) {}

  void Feed(std::string_view piece);

  // Call this at the end of the log.
  void Finish();

 private:
  // Where a record begins, and where its text begins.
  struct Lead {
    std::size_t begin;
    std::size_t end;
    LogRecord record;
  };

  void Scan(bool final);
  std::optional<Lead> LeadAt(std::size_t colon) const;
  std::size_t NameBegin(std::size_t colon) const;
  std::size_t PrefixBegin(std::size_t nameBegin) const;
  void Emit(std::size_t end);

  Consumer consumer_;
  std::string buffer_;
  // Where the text of the current record begins, and where to continue the search for the next one.
  std::size_t text_ = 0;
  std::size_t scan_ = 0;
  LogRecord current_;
};

}  // namespace common
