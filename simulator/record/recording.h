#pragma once

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/device/client.h"
#include "simulator/device/raw_operation.h"
#include "simulator/scenario/scenario_file.h"

namespace zulisim {

// A recording is a text: a first line with the version of its form, the clients by name and GUID,
// the operations in order of their completion, and a last line "end". What follows a "#" is a
// comment; behind an operation it is the operation's note.
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
// Every operation is written as a whole when it completes. A text that lacks the last line is cut:
// it is good up to the last operation of which nothing is missing.

struct RecordedOperation {
  RawOperation raw;
  std::uint32_t line = 0;  // where it begins
};

struct Recording {
  std::vector<Client> clients;
  std::vector<RecordedOperation> operations;
  bool cut = false;
};

class RecordingError : public std::runtime_error {
 public:
  explicit RecordingError(const Diagnostic& diagnostic)
      : std::runtime_error(diagnostic.message), diagnostic_(diagnostic) {}
  const Diagnostic& diagnostic() const { return diagnostic_; }

 private:
  Diagnostic diagnostic_;
};

// True for the text of a recording of any version.
bool IsRecording(const std::string& text);

// Throws RecordingError.
Recording ParseRecording(const std::string& text);

std::string RecordingHead(const std::vector<std::string>& program,
                          const std::vector<Client>& clients);
std::string RecordingEntry(std::uint64_t number, const RawOperation& operation);
inline constexpr const char* kRecordingEnd = "end\n";

}  // namespace zulisim
