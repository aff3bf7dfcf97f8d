#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "common/colours.h"
#include "simulator/device/operation.h"
#include "simulator/output/output_file.h"
#include "simulator/output/output_writer.h"

namespace zulisim {

// Which lines a transcript has. Each condition that is set must hold.
struct TranscriptFilter {
  bool failures = false;                 // failed operations, negative statuses
  std::optional<std::string> client;     // by its name, in either case of letters
  std::optional<std::uint32_t> command;  // reads and writes of its exchanges
};

struct TranscriptStyle {
  common::Colours colours;
  // Name a descriptor by the engine's own number, "#1", which is the same however a program is
  // attached, and not by the program's, "fd 5", which is the default where it is known. Processes
  // and threads, which are never the same, are not named then.
  bool connectionNumbers = false;
  // Show the seconds since this moment of the clock of Now().
  std::optional<std::chrono::nanoseconds> start = std::nullopt;
  // Show the local date and time; the value is what the system clock is ahead of Now().
  std::optional<std::chrono::nanoseconds> clock = std::nullopt;
  // So many bytes of each message follow its line.
  std::size_t bytes = 0;
  TranscriptFilter only = {};
  // Name the process and, after a slash, the thread that is not its first.
  bool threads = false;
};

// One line about one operation, without a line end, and those of its bytes:
//   "   4  fd 5  KALO  read     64 of 4096 bytes  command 0x10  status 0x0"
//   "   5  fd 5  KALO  write    failed  ENODEV  64 bytes  (the device is lost at write 2)"
std::string TranscriptLine(const OperationRecord& record, const TranscriptStyle& style = {});

// The line of something that is no operation: "0.001234 tell lose".
std::string NoteText(const std::string& text, std::chrono::nanoseconds time,
                     const TranscriptStyle& style);

// Hands out a line, with its end, as each operation ends, and those of the log between them. From
// the first operation of a second process or thread on, each line names who made the call.
class Transcript : public OutputWriter {
 public:
  Transcript(TextSink sink, TranscriptStyle style) : sink_(std::move(sink)), style_(style) {}
  void OnOperation(const OperationRecord& record) override;
  void OnLogLine(const LogLine& line) override;
  void OnNote(const std::string& text, std::chrono::nanoseconds time) override;

 private:
  bool Shows(const OperationRecord& record);
  void WriteDim(const std::string& line);

  const TextSink sink_;
  TranscriptStyle style_;
  int firstThread_ = 0;
  std::map<std::uint64_t, std::uint32_t> commands_;  // the last of each connection
};

}  // namespace zulisim
