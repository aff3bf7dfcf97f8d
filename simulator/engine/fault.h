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

// A set of operations.
constexpr unsigned Bit(Operation operation) { return 1U << static_cast<unsigned>(operation); }
inline constexpr unsigned kEveryOperation = (1U << kOperationCount) - 1;

// The operation fails with `error` and has no other effect: the client gets no request, a pending
// reply stays pending, no descriptor is created. A close still frees its descriptor, as on Linux.
struct ErrnoFault {
  static constexpr unsigned kOperations = kEveryOperation;
  int error = EIO;
};

// A read or write moves at most `count` bytes of the message; the rest is lost.
struct ShortCount {
  static constexpr unsigned kOperations = Bit(Operation::kRead) | Bit(Operation::kWrite);
  std::size_t count = 0;
  bool half = false;  // half of the message, rounded down, instead of `count`
};

// From now on, read, write and ioctl of every open descriptor fail with ENODEV; the program needs a
// new open. The operation with this fault fails with ENODEV too, except that a close succeeds.
struct DeviceLoss {
  static constexpr unsigned kOperations = kEveryOperation;
  std::uint64_t failingOpens = 0;  // so many opens after the loss fail
  int openError = ENODEV;          // with this errno
  // Otherwise, replies that were not read yet go to the next descriptor that connects to the same
  // client, if the next open succeeds: a program that reconnects at once loses nothing.
  bool dropReplies = false;
};

// The client takes the request, but refuses it with `status` and private data or, without a status,
// never answers.
struct ReplyFault {
  static constexpr unsigned kOperations = Bit(Operation::kWrite);
  std::optional<std::uint32_t> status;
};

inline constexpr std::uint32_t kRefusedStatus = 0x80000001;

// Each kind of effect says which operations it can be bound to.
using FaultEffect = std::variant<ErrnoFault, ShortCount, DeviceLoss, ReplyFault>;

inline constexpr std::uint64_t kForever = std::numeric_limits<std::uint64_t>::max();

// The positions from `first` to `first + times - 1`, which count from 1.
struct Occurrences {
  std::uint64_t first = 1;
  std::uint64_t times = 1;
  bool Include(std::uint64_t number) const { return number >= first && number - first < times; }
  std::uint64_t Last() const { return times == kForever ? kForever : first + times - 1; }
  bool Overlap(const Occurrences& other) const {
    return first <= other.Last() && other.first <= Last();
  }
};

// Restricts the operations that a fault counts to those of a client, a command or a connection;
// all count where nothing is set. In a program with threads the order over all descriptors changes
// from run to run, but within a scope it can be fixed.
struct FaultScope {
  std::string client;
  std::optional<std::uint32_t> command;  // reads and writes: of the exchange
  std::uint64_t connection = 0;          // by the engine's number

  bool IsAll() const { return client.empty() && !command && connection == 0; }
  // True when the fault counts an operation with the scope `other`.
  bool Covers(const FaultScope& other) const;
  bool operator==(const FaultScope& other) const;
};

// How often an instruction has happened.
struct Tally {
  std::string origin;          // of the instruction
  const char* counted = "";    // what it counts: "read"
  std::uint64_t wanted = 1;    // how often it must happen
  std::uint64_t seen = 0;      // how many it has counted
  std::uint64_t happened = 0;  // in how many of those it has happened

  bool Missed() const { return happened < wanted; }
  // "--fault read:3=EIO: never happened in 2 reads"
  std::string Text() const;
};

// Applies to the operations `first` to `first + times - 1` of a kind. Positions count from 1 over
// the whole life of the engine, failed operations included; with a scope, they count the operations
// in it from when the fault was added.
struct Fault {
  Operation operation = Operation::kRead;
  std::uint64_t first = 1;
  std::uint64_t times = 1;
  FaultEffect effect = ErrnoFault{};
  // Below 1, the fault applies to some of them. The choice depends only on the seed and the
  // position, so it is the same in every run.
  double probability = 1;
  std::uint64_t seed = 0;
  FaultScope scope = {};
  std::string origin = {};  // where it was requested: "--lose read:3" or "loss.toml:7"

  Occurrences When() const { return {first, times}; }
  bool AppliesTo(Operation kind, std::uint64_t occurrence) const;
};

// Nothing for a possible fault, else the reason why it is impossible and the remedy.
std::optional<std::string> FaultError(const Fault& fault);

// An ordered list of faults, each of which counts its operations. Where several match an operation,
// the first applies. Not thread-safe.
class FaultPlan {
 public:
  // Counts on from `seen`. Throws std::invalid_argument with the text of FaultError.
  void Add(const Fault& fault, std::uint64_t seen);
  void Clear() { entries_.clear(); }
  // Counts one operation. Returns the fault that applies to it, or null.
  const Fault* Count(Operation operation, const FaultScope& scope);
  // In the order of Add.
  std::vector<Tally> Tallies() const;

 private:
  struct Entry {
    Fault fault;
    Tally tally;
  };
  std::vector<Entry> entries_;
};

}  // namespace zulisim
