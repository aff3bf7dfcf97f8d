#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace common {

// One message of a log.
struct LogRecord {
  std::string prefix;    // "[00001234] 77": process id and tick, where the log has them
  std::string function;  // empty for text that belongs to no record
  std::string tag;
  std::string text;  // without the line end

  bool operator==(const LogRecord& other) const {
    return text == other.text && function == other.function && tag == other.tag &&
           prefix == other.prefix;
  }
};

// Cuts a log into records. A record begins with "<function>:<digits>: ", where the function is one
// of the library's or any name at the start of a line, and ends with the line or at the next one.
// Takes a log in pieces of any size and holds no more of it than one record, or 1 MiB of one.
class LogSplitter {
 public:
  using Consumer = std::function<void(LogRecord&&)>;

  explicit LogSplitter(Consumer consumer) : consumer_(std::move(consumer)) {}

  void Feed(std::string_view piece);

  // The log ends here.
  void Finish();

 private:
  // The start of a record: from where, and up to where its text begins.
  struct Lead {
    std::size_t begin;
    std::size_t end;
    LogRecord record;
  };

  void Scan(bool final);
  std::optional<Lead> LeadAt(std::size_t colon) const;
  std::size_t NameBegin(std::size_t colon) const;
  std::size_t PrefixBegin(std::size_t nameBegin) const;
  bool StartsLine(std::size_t position) const;
  void Emit(std::size_t end);
  void DropConsumed();

  Consumer consumer_;
  std::string buffer_;
  // Where the current text begins, and where the search for the next record goes on.
  std::size_t text_ = 0;
  std::size_t scan_ = 0;
  bool lineStart_ = true;
  LogRecord current_;
};

}  // namespace common
