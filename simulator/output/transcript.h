#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "common/colours.h"
#include "simulator/device/operation.h"
#include "simulator/output/output_file.h"
#include "simulator/output/output_writer.h"

namespace zulisim {

// Selects the lines of a transcript. Each condition that is set must hold, for any of its values.
struct TranscriptFilter {
  bool failures = false;             // failed operations, negative statuses
  std::set<std::string> clients;     // names of clients; case does not matter
  std::set<std::uint64_t> commands;  // only reads and writes of these commands
};

struct TranscriptStyle {
  common::Colours colours;
  // Show the engine's number of a connection, such as "#1", instead of the program's descriptor,
  // such as "fd 5", and do not show processes and threads. The transcript is then the same in every
  // run and attachment.
  bool connectionNumbers = false;
  // Show the seconds since this time of the clock of Now().
  std::optional<std::chrono::nanoseconds> start = std::nullopt;
  // Show the local date and time. The value is the system clock's time minus Now().
  std::optional<std::chrono::nanoseconds> clock = std::nullopt;
  // Show up to this many bytes of each message below its line.
  std::optional<std::uint32_t> bytes = std::nullopt;
  TranscriptFilter only = {};
  // Show the process and, after a slash, the thread unless it is the first.
  bool threads = false;
};

// Returns the line of an operation and those of its bytes, without the last line end:
//   "   4  fd 5  KALO  read     64 of 4096 bytes  command 0x10  status 0x0"
//   "   5  fd 5  KALO  write    failed  ENODEV  64 bytes  (the device is lost at write 2)"
std::string TranscriptLine(const OperationRecord& record, const TranscriptStyle& style = {});

// Returns the text of an event, such as "0.001234 tell lose".
std::string NoteText(const DeviceEvent& event, const TranscriptStyle& style);

// Writes a line for each operation when it ends, and the lines of the log between them. From the
// first operation of a second process or thread on, each line shows the process and thread.
class Transcript : public OutputWriter {
 public:
  Transcript(TextSink sink, TranscriptStyle style)
      : sink_(std::move(sink)), style_(std::move(style)) {}
  void OnOperation(const OperationRecord& record) override;
  void OnLogLine(const std::string& line, bool isFailure, std::chrono::nanoseconds time) override;
  void OnDeviceEvent(const DeviceEvent& event) override;

 private:
  bool Shows(const OperationRecord& record);
  void WriteDim(const std::string& line);

  const TextSink sink_;
  TranscriptStyle style_;
  int firstThread_ = 0;
  std::map<std::uint64_t, std::uint32_t> commands_;  // the last command of each connection
};

}  // namespace zulisim
