#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "common/input_error.h"
#include "simulator/device/client.h"
#include "simulator/device/operation.h"

namespace zulisim {

// A recording is a text of JSON Lines: a header, one line for each operation in the order of
// completion, and a last line that says that the recording is complete. Here the lines are wrapped:
//
//   {"format":"zulisim
//   recording","version":2,"tool":"zulisim 1.0","started":"2026-11-21T20:15:00.123456Z",
//    "program":["./driver"],
//    "clients":[{"name":"KALO","guid":"{FBF6FCF1-96CF-4E2E-A6A6-1BAB8CBE36B1}"}]}
//   {"number":1,"start_ns":103000,"duration_ns":10000,"process":70,"thread":71,"connection":1,
//    "operation":"open","flags":"O_RDWR","result":0}
//   {"number":2,"start_ns":214000,"duration_ns":7000,"process":70,"thread":71,"connection":1,
//    "client":"KALO","operation":"ioctl","request":"0xc0104801",
//    "input":"f1fcf6fbcf962e4ea6a61bab8cbe36b1","result":0,
//    "output":"0010000001000000a6a61bab8cbe36b1"}
//   {"number":3,...,"operation":"write","length":20,"command":"0x10","input":"0000...","result":20}
//   {"number":4,...,"operation":"read","length":4096,"result":-1,"errno":"ENODEV",
//    "note":"the device is lost at read 1"}
//   {"number":5,...,"operation":"close","result":0}
//   {"complete":true}
//
// Times are nanoseconds; "start_ns" counts from the start of the recording. Operations with the
// same "connection" used the same open file; a failed open has none. "input" holds the bytes that
// the program passed, "output" those that it got. "null":true marks a null or bad address.
// "abandoned":true marks a close that the program did not make. Operations may be removed, inserted
// and changed. The reader ignores "number", "client", "command" and "status", which follow from the
// rest, and members that it does not know.
//
// A redacted recording has "redacted":true in its header. Its inputs and outputs end after the
// message header; "length" and "result" still count all bytes.
//
// The recorder writes each line at once. A recording without the last line was cut off: it holds
// every operation that was recorded before that.

struct RecordingHeader {
  std::string tool;                  // "zulisim 1.0"
  std::string started;               // in UTC, as in "2026-11-21T20:15:00.123456Z"
  std::vector<std::string> program;  // with its arguments; only its name in a redacted recording
  std::vector<Client> clients;       // name and GUID
  bool redacted = false;
};

struct Recording {
  RecordingHeader header;
  // Operation i is on line i + 2. All members are filled in except the descriptor; `start` and
  // `end` count from the start of the recording.
  std::vector<OperationRecord> operations;
  bool cut = false;
};

struct RecordingError : std::runtime_error {
  explicit RecordingError(common::Diagnostic place)
      : std::runtime_error(place.message), diagnostic(std::move(place)) {}
  const common::Diagnostic diagnostic;
};

// In bytes; enough for hours of recording.
inline constexpr std::size_t kLongestRecording = 1 << 28;

// Returns true if the text is not a scenario but may be a recording, of any version.
bool IsRecording(const std::string& text);

// Throws RecordingError.
Recording ParseRecording(const std::string& text);

// These functions return a line of a recording: the header, an operation, and the last line.
std::string HeaderLine(const RecordingHeader& header);
std::string OperationLine(const OperationRecord& record);
inline constexpr const char* kCompleteLine = "{\"complete\":true}\n";

// Returns for example "O_RDWR|O_CLOEXEC"; bits without a name follow in hexadecimal.
std::string OpenFlagsText(int flags);

}  // namespace zulisim
