#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "common/hex.h"
#include "simulator/device/device_abi.h"

namespace zulisim {

using common::Bytes;

// Why a connection is closed.
enum class CloseReason { kProgramClosed, kProgramEnded, kServiceEnded };
// For transcripts: "the program ended without a close"; empty for kProgramClosed.
const char* CloseReasonText(CloseReason reason);

enum class Operation { kOpen, kIoctl, kRead, kWrite, kClose };
inline constexpr std::size_t kOperationCount = 5;

// The meaning of an operation's bytes.
enum class Payload { kNone, kConnectRecord, kRequest, kReply, kPrivateData };

// Returns "open", "ioctl", "read", "write" or "close".
const char* OperationName(Operation operation);
// Throws InputError for any other name.
Operation ParseOperation(const std::string& name);

// Returns "EIO" for EIO, and the decimal number for a value without a name.
std::string ErrnoName(int error);
// Returns EIO for "EIO" or "eio". Throws InputError.
int ParseErrno(const std::string& name);

// Parses an even number of hexadecimal digits, at least two. Throws InputError, whose text names
// the value as `what`.
Bytes ParseBytes(const std::string& what, const std::string& text);

// The 16-byte header of every request and reply: four little-endian 32-bit words.
inline constexpr std::size_t kHeaderSize = 16;
inline constexpr std::size_t kCommandIdOffset = 4;
inline constexpr std::size_t kStatusOffset = 8;

// Returns the word at `offset`, or nothing when the message ends before the word does.
std::optional<std::uint32_t> WordAt(const Bytes& message, std::size_t offset);
// Writes the word at `offset`, except for bytes after the end of the message.
void SetWordAt(Bytes* message, std::size_t offset, std::uint32_t word);
// The firmware sends private data after a reply with a negative status.
inline constexpr std::size_t kPrivateDataSize = 16;
inline bool IsNegative(std::uint32_t status) { return status >> 31 != 0; }

// What the program passes to an operation.
struct OperationCall {
  Operation operation = Operation::kOpen;
  bool abandoned = false;        // a close that the program did not make
  std::uint64_t connection = 0;  // the device's number of the open file; 0 for a failed open
  int openFlags = 0;             // open: both arguments as passed, the mode also without O_CREAT
  unsigned openMode = 0;         //
  std::uint32_t request = 0;     // ioctl: the request number as 32 bits
  std::uint64_t length = 0;      // read and write: the requested byte count
  bool hasBuffer = true;         // ioctl, read and write: false for null or a bad address
  bool nonBlocking = false;      // read: fails with EAGAIN where it would have to wait
  Bytes input;                   // write: the message; ioctl: the argument before the call
  int process = 0;               // number of the calling process; 0 if unknown
  int thread = 0;                //
};

// One operation on the device: what the program passed and got, and what that means.
struct OperationRecord : OperationCall {
  // What the program got.
  std::int64_t result = 0;  // what the call returns; -1 on failure (an open's 0 is a success)
  int error = 0;            // errno of a failure, else 0
  Bytes output;             // read: the message; ioctl: the argument after the call
  std::chrono::nanoseconds start{};  // on the monotonic clock
  std::chrono::nanoseconds end{};
  std::string why;  // the reason for a failure or a short transfer
  // Filled in by the engine or, for other devices, by the decoder.
  std::uint64_t sequence = 0;    // 1 for the device's first operation, in order of completion
  std::uint64_t occurrence = 0;  // n for the n-th operation of its kind, in order of arrival
  int descriptor = -1;           // the program's descriptor; -1 if it is unknown
  std::string client;            // name of the client that is connected; empty before the connect
  Payload payload = Payload::kNone;
  std::optional<std::uint32_t> commandId;  // command of the exchange to which the message belongs
  std::optional<std::uint32_t> status;     // status of a reply

  bool IsConnect() const { return operation == Operation::kIoctl && request == kConnectRequest; }
  bool IsTransfer() const {
    return operation == Operation::kRead || operation == Operation::kWrite;
  }
  // Returns what a device returns: the result, or the connection of an open that succeeded.
  Result ReturnValue() const {
    const bool opened = operation == Operation::kOpen && error == 0;
    return {opened ? static_cast<std::int64_t>(connection) : result, error};
  }
  // An error, or a reply with a negative status.
  bool IsFailure() const { return error != 0 || (status && IsNegative(*status)); }
  // Return the sizes of `input` and `output` that follow from the other members.
  std::size_t InputSize() const;
  std::size_t OutputSize() const;
  // Returns the transferred bytes: of a request, a reply, private data or the connect record.
  // Returns nothing for other operations.
  Bytes Message() const;
};

// Something that happens to the device between two operations.
struct DeviceEvent {
  std::chrono::nanoseconds time{};  // on the monotonic clock
  std::string text;                 // one line, as in "tell lose"
};

// Removes message bodies and private data. The connect record and the headers of requests and
// replies stay. Lengths and results still count all bytes.
void RemoveBodies(OperationRecord* record);

// Returns the time on the monotonic clock.
std::chrono::nanoseconds Now();

// Returns a copy of the bytes at `buffer`; none for null.
Bytes Copied(const void* buffer, std::size_t length);

// Receives every operation, one at a time in order of `sequence`. The thread that performed the
// operation calls the observer before its own caller continues. An observer must not call the
// device and must not throw.
class OperationObserver {
 public:
  virtual ~OperationObserver() = default;
  virtual void OnOperation(const OperationRecord& record) = 0;
  // Called between two operations, by the same rules.
  virtual void OnDeviceEvent(const DeviceEvent& event) { static_cast<void>(event); }
};

}  // namespace zulisim
