#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zulisim {

using Bytes = std::vector<std::uint8_t>;

enum class Operation { kOpen, kIoctl, kRead, kWrite, kClose };
inline constexpr std::size_t kOperationCount = 5;

// What the bytes of an operation are.
enum class Payload { kNone, kConnectRecord, kRequest, kReply, kPrivateData };

// "open", "ioctl", "read", "write" or "close".
const char* OperationName(Operation operation);
std::optional<Operation> OperationFromName(const std::string& name);

// "EIO" for EIO; the number in decimal where the value has no name.
std::string ErrnoName(int error);
// The value of "EIO" and its like, in either case; nothing for an unknown name.
std::optional<int> ErrnoFromName(const std::string& name);

// One operation on the device, complete, as an observer is told of it.
struct OperationRecord {
  std::uint64_t sequence = 0;    // 1 for the engine's first operation, in order of completion
  std::uint64_t occurrence = 0;  // n for the n-th operation of its kind, in order of arrival
  Operation operation = Operation::kOpen;
  std::uint64_t connection = 0;  // the engine's own number of the open file; 0 for a failed open
  int descriptor = -1;  // the program's descriptor; -1 where it is unknown or there is none
  std::string client;   // name of the client that is connected; empty before the connect
  int openFlags = 0;    // open: both arguments as passed, the mode also without O_CREAT
  unsigned openMode = 0;
  std::uint32_t request = 0;  // ioctl: the request number as 32 bits
  std::size_t length = 0;     // read and write: the byte count that was asked for
  std::int64_t result = 0;    // what the call returns; -1 on failure (an open's 0 is a success)
  int error = 0;              // errno of a failure, else 0
  Payload payload = Payload::kNone;
  Bytes bytes;  // write: as received; read: as delivered; connect: the record
  std::optional<std::uint32_t> commandId;  // of the exchange that the message belongs to
  std::optional<std::uint32_t> status;     // of a reply
  std::string why;                   // what made it fail or fall short; empty when all is ordinary
  std::chrono::nanoseconds start{};  // on the monotonic clock
  std::chrono::nanoseconds end{};
};

// Is told of every operation, one at a time and in order of `sequence`, by the thread that
// performed it and before its caller goes on. Must not call the engine that tells it, nor throw.
class OperationObserver {
 public:
  virtual ~OperationObserver() = default;
  virtual void OnOperation(const OperationRecord& record) = 0;
};

}  // namespace zulisim
