#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/input_error.h"
#include "simulator/device/client.h"
#include "simulator/device/operation.h"

namespace zulisim {

// A recording is a text: a first line with the version of its form, the clients by name and GUID,
// the operations in order of their completion, and a last line "end". What follows a "#" is a
// comment; after an operation it is the operation's note.
//
//   zulisim recording 1
//   # ./driver --frames 3
//   client KALO {FBF6FCF1-96CF-4E2E-A6A6-1BAB8CBE36B1}
//
//   1  0.000103000  #1  open O_RDWR  -> ok  in 0.000010000
//   2  0.000214000  #1  ioctl 0xc0104801  -> ok  in 0.000007000
//     > f1fcf6fb cf962e4e a6a61bab 8cbe36b1  # .......N........
//     < 00100000 01000000 a6a61bab 8cbe36b1  # ................
//   3  0.000305000  #1  write 20  -> 20  in 0.000009000
//     > 00000000 10000000 00000000 00000000 6f6b6f6b  # ................okok
//   4  0.000390000  #1  read 4096  -> ENODEV  in 0.000004000  # the device is lost at read 1
//   5  0.000433000  #1  close  -> ok  in 0.000002000
//   end
//
// The first two columns are the number and the start in seconds since the recording began. The
// number is for the reader alone; operations may be taken out, put in and changed. The third is the
// connection: every operation with the same one was on the same open of the device, "-" had none.
// ">" is what the program passed and "<" what it got. A null or bad address shows as "null" in
// front of the arrow; "gone" is the end of a program that did not close the connection.
//
// In a redacted recording, "redacted 48 9f86d0..." stands for as many bytes, with their SHA-256
// digest.
//
// Every operation is written as a whole when it completes. A text that lacks the last line is cut:
// it is good up to the last operation of which nothing is missing.

struct RecordedOperation {
  OperationRecord record;  // `start` is since the recording began; nothing is decoded
  std::uint32_t line = 0;  // where it begins
};

struct Recording {
  std::vector<Client> clients;
  std::vector<RecordedOperation> operations;
  bool cut = false;
  bool redacted = false;  // some bytes are unknown, and 0 here
};

class RecordingError : public std::runtime_error {
 public:
  explicit RecordingError(const common::Diagnostic& diagnostic)
      : std::runtime_error(diagnostic.message), diagnostic_(diagnostic) {}
  const common::Diagnostic& diagnostic() const { return diagnostic_; }

 private:
  common::Diagnostic diagnostic_;
};

// Enough for hours.
inline constexpr std::size_t kLongestRecording = 1 << 28;

// True for the text of a recording of any version.
bool IsRecording(const std::string& text);

// Throws RecordingError.
Recording ParseRecording(const std::string& text);

// The pieces of a recording: what comes first, an operation with its `start` since the recording
// began, and the last line.
std::string RecordingHead(const std::vector<std::string>& program,
                          const std::vector<Client>& clients);
std::string RecordingEntry(std::uint64_t number, const OperationRecord& record,
                           bool redact = false);
inline constexpr const char* kRecordingEnd = "end\n";

// "O_RDWR|O_CLOEXEC"; bits without a name follow in hexadecimal.
std::string OpenFlagsText(int flags);
// The mode of an open, or 0 where the flags give it no meaning: it is whatever lay on the stack.
unsigned OpenMode(const OperationRecord& record);

}  // namespace zulisim
