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

// The operation fails with `error` and has no other effect: a request is not taken, a pending
// reply stays pending, no descriptor is made. A close frees its descriptor all the same, as
// Linux does.
struct ErrnoFault {
  static constexpr unsigned kOperations = kEveryOperation;
  int error = EIO;
};

// A read delivers, or a write takes, at most `count` bytes of the message; the rest is gone.
struct ShortCount {
  static constexpr unsigned kOperations = Bit(Operation::kRead) | Bit(Operation::kWrite);
  std::size_t count = 0;
  bool half = false;  // half of what would move, rounded down, in place of `count`
};

// Every descriptor that is open now answers ENODEV from here on, in read, write and ioctl; only a
// new open gives a live one. The operation that meets the loss fails with ENODEV itself, but for a
// close, which succeeds.
struct DeviceLoss {
  static constexpr unsigned kOperations = kEveryOperation;
  std::uint64_t failingOpens = 0;  // so many opens after the loss fail
  int openError = ENODEV;          // with this errno
  // Otherwise, replies that were not read yet go to the next descriptor that connects to the same
  // client, if the next open succeeds: a program that reconnects at once loses nothing.
  bool dropReplies = false;
};

// The client takes the request but does not answer it as it would: it refuses it with `status` and
// private data, or never answers.
struct ReplyFault {
  static constexpr unsigned kOperations = Bit(Operation::kWrite);
  std::optional<std::uint32_t> status;
};

inline constexpr std::uint32_t kRefusedStatus = 0x80000001;

// Each kind of effect says which operations it can be bound to.
using FaultEffect = std::variant<ErrnoFault, ShortCount, DeviceLoss, ReplyFault>;

inline constexpr std::uint64_t kForever = std::numeric_limits<std::uint64_t>::max();

// The ones from `first` to `first + times - 1`, counted from 1.
struct Occurrences {
  std::uint64_t first = 1;
  std::uint64_t times = 1;
  bool Include(std::uint64_t number) const { return number >= first && number - first < times; }
  std::uint64_t Last() const { return times == kForever ? kForever : first + times - 1; }
  bool Overlap(const Occurrences& other) const {
    return first <= other.Last() && other.first <= Last();
  }
};

// Which operations of a kind a fault counts: those of a client, of a command, of a connection; all
// where nothing is set. Threads make the order over all descriptors an accident; these have an
// order of their own.
struct FaultScope {
  std::string client;
  std::optional<std::uint32_t> command;  // reads and writes: of the exchange
  std::uint64_t connection = 0;          // by the engine's number

  bool IsAll() const { return client.empty() && !command && connection == 0; }
  // Whether it counts what happens in `other`, in which all is set that is known.
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

// Strikes the operations `first` to `first + times - 1` of its kind, counted from 1 over the whole
// life of the engine, failed operations included; with a scope, over those in it since the fault
// was added.
struct Fault {
  Operation operation = Operation::kRead;
  std::uint64_t first = 1;
  std::uint64_t times = 1;
  FaultEffect effect = ErrnoFault{};
  // Below 1, it strikes only some of them. Which ones follows from the seed and from the number of
  // the operation alone: the same in every run, whatever the threads do.
  double probability = 1;
  std::uint64_t seed = 0;
  FaultScope scope = {};
  std::string origin = {};  // where it was asked for, as in "--lose read:3" or "loss.toml:7"

  Occurrences When() const { return {first, times}; }
  bool Strikes(Operation kind, std::uint64_t occurrence) const;
};

// Nothing when the fault can strike, else what is wrong with it and what would be right.
std::optional<std::string> FaultError(const Fault& fault);

// An ordered list of faults, each of which counts the operations that it is for; where several
// match one, the first added strikes. Not thread-safe.
class FaultPlan {
 public:
  // Counts on from `seen`. Throws std::invalid_argument with the text of FaultError.
  void Add(const Fault& fault, std::uint64_t seen);
  void Clear() { entries_.clear(); }
  // Counts one operation. The fault that strikes it, or null.
  const Fault* Strike(Operation operation, const FaultScope& scope);
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
