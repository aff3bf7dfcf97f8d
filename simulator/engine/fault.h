#pragma once

#include <cerrno>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "simulator/device/operation.h"

namespace zulisim {

// Returns the bit of an operation in a set of operations.
constexpr unsigned Bit(Operation operation) { return 1U << static_cast<unsigned>(operation); }
inline constexpr unsigned kEveryOperation = (1U << kOperationCount) - 1;

// The operation fails with `error` and has no other effect: the client does not get the request, a
// pending reply stays pending, an open gives no descriptor. Only a close still closes, as on Linux.
struct ErrnoFault {
  static constexpr unsigned kOperations = kEveryOperation;
  int error = EIO;
};

// A read or write moves at most `count` bytes of the message. The rest is discarded.
struct ShortCount {
  static constexpr unsigned kOperations = Bit(Operation::kRead) | Bit(Operation::kWrite);
  std::size_t count = 0;
  bool half = false;  // ignores `count` and moves half of the bytes, rounded down
};

// From now on, read, write and ioctl fail with ENODEV on every descriptor that is open now. The
// program must open the device again. The operation at which the device is lost fails with ENODEV
// too, unless it is a close, which succeeds.
struct DeviceLoss {
  static constexpr unsigned kOperations = kEveryOperation;
  std::uint64_t failingOpens = 0;  // the number of opens after the loss that fail
  int openError = ENODEV;          // their errno
  // If false, replies that the program has not read go to the next descriptor that connects to the
  // same client, provided that the next open succeeds. A program that reconnects at once then loses
  // nothing.
  bool dropReplies = false;
};

// The client accepts the request and refuses it with `status` and private data. Without a status,
// the client never answers.
struct ReplyFault {
  static constexpr unsigned kOperations = Bit(Operation::kWrite);
  std::optional<std::uint32_t> status;
};

inline constexpr std::uint32_t kRefusedStatus = 0x80000001;

// The `kOperations` of each type are the operations that can have this effect.
using FaultEffect = std::variant<ErrnoFault, ShortCount, DeviceLoss, ReplyFault>;

inline constexpr std::uint64_t kForever = std::numeric_limits<std::uint64_t>::max();

// The range from `first` to `first + times - 1`. Numbers start at 1.
struct Occurrences {
  std::uint64_t first = 1;
  std::uint64_t times = 1;
  bool Include(std::uint64_t number) const { return number >= first && number - first < times; }
  std::uint64_t Last() const { return times == kForever ? kForever : first + times - 1; }
  bool Overlap(const Occurrences& other) const {
    return first <= other.Last() && other.first <= Last();
  }
};

// Selects the operations that a fault counts: those of a client, a command or a connection. If no
// member is set, the fault counts all operations. In a program with threads, the order over all
// descriptors changes from run to run; the order within a scope usually does not.
struct FaultScope {
  std::string client;
  std::optional<std::uint32_t> command;  // only reads and writes of this command
  std::uint64_t connection = 0;          // the engine's number of the connection

  bool IsAll() const { return client.empty() && !command && connection == 0; }
  // Returns true when this scope includes `other`, the scope of one operation.
  bool Covers(const FaultScope& other) const;
};

// Counts how often an instruction has happened.
struct InstructionCount {
  std::string origin;          // the instruction: "--lose read:3" or "loss.toml:7"
  const char* unit = "";       // "read" or another operation, or "request"
  std::uint64_t wanted = 1;    // how often it must happen
  std::uint64_t seen = 0;      // how many operations or requests it covers so far
  std::uint64_t happened = 0;  // in how many of those it has happened

  bool IsTooLow() const { return happened < wanted; }
  // Returns for example "--fault read:3=EIO: never happened in 2 reads".
  std::string Text() const;
};

// Applies to some operations of a kind. The engine counts those in the scope since the fault was
// added, including failed ones.
struct Fault {
  Operation operation = Operation::kRead;
  FaultEffect effect = ErrnoFault{};
  Occurrences when = {};
  // If this is below 1, the fault applies to only some of them. The choice depends only on the seed
  // and the number of the operation, so it is the same in every run.
  double probability = 1;
  std::uint64_t seed = 0;
  FaultScope scope = {};
  std::string origin = {};  // "--lose read:3" or "loss.toml:7"
};

// Returns nothing for a fault that can happen. Otherwise returns what is wrong and the remedy.
std::optional<std::string> FaultError(const Fault& fault);

// An ordered list of faults, each of which counts the operations in its scope. When several match
// an operation, the one that was added first applies. Not thread-safe.
class FaultPlan {
 public:
  // Throws std::invalid_argument with the text of FaultError.
  void Add(const Fault& fault);
  void Clear() { entries_.clear(); }
  // Counts one operation. Returns the fault that applies to it, or null.
  const Fault* Next(Operation operation, const FaultScope& scope);
  void AddCounts(std::vector<InstructionCount>* counts) const;  // in the order of Add

 private:
  struct Entry {
    Fault fault;
    InstructionCount count;
  };
  std::vector<Entry> entries_;
};

}  // namespace zulisim
