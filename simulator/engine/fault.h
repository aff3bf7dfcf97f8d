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

// The operation fails with `error` and has no other effect: a request is not taken, a pending
// reply stays pending, no descriptor is made. A close frees its descriptor all the same, as
// Linux does.
struct ErrnoFault {
  int error = EIO;
};

// A read delivers, or a write takes, at most `count` bytes of the message; the rest is gone.
struct ShortCount {
  std::size_t count = 0;
};

// Every descriptor that is open now answers ENODEV from here on, in read, write and ioctl; only a
// new open gives a live one. The operation that meets the loss fails with ENODEV itself, but for a
// close, which succeeds.
struct DeviceLoss {
  std::uint64_t failingOpens = 0;  // so many opens after the loss fail
  int openError = ENODEV;          // with this errno
  // Replies that were not read yet are handed to the next descriptor that connects to the same
  // client, provided that the next open succeeds: a program that reconnects at once loses nothing.
  bool keepReplies = true;
};

using FaultEffect = std::variant<ErrnoFault, ShortCount, DeviceLoss>;

inline constexpr std::uint64_t kForever = std::numeric_limits<std::uint64_t>::max();

// Strikes the operations `first` to `first + times - 1` of its kind, counted from 1 over the whole
// life of the engine, failed operations included.
struct Fault {
  Operation operation = Operation::kRead;
  std::uint64_t first = 1;
  std::uint64_t times = 1;
  FaultEffect effect = ErrnoFault{};
  // Below 1, it strikes only some of them. Which ones follows from the seed and from the number of
  // the operation alone: the same in every run, whatever the threads do.
  double probability = 1;
  std::uint64_t seed = 0;

  bool Strikes(Operation kind, std::uint64_t occurrence) const;
};

// Nothing when the fault can strike, else what is wrong with it and what would be right.
std::optional<std::string> FaultError(const Fault& fault);

// An ordered list of faults; where several match one operation, the first added strikes.
// Not thread-safe.
class FaultPlan {
 public:
  // Throws std::invalid_argument with the text of FaultError.
  void Add(const Fault& fault);
  void Clear() { faults_.clear(); }
  const Fault* Match(Operation operation, std::uint64_t occurrence) const;

 private:
  std::vector<Fault> faults_;
};

}  // namespace zulisim
