#include "simulator/engine/fault.h"

#include <stdexcept>

namespace zulisim {
namespace {

// A number from 0 up to but not including 1, spread evenly over neighbouring inputs (splitmix64).
double Draw(std::uint64_t seed, std::uint64_t occurrence) {
  std::uint64_t mixed = seed + occurrence * 0x9e3779b97f4a7c15;
  mixed = (mixed ^ mixed >> 30) * 0xbf58476d1ce4e5b9;
  mixed = (mixed ^ mixed >> 27) * 0x94d049bb133111eb;
  mixed ^= mixed >> 31;
  return static_cast<double>(mixed >> 11) / static_cast<double>(std::uint64_t{1} << 53);
}

}  // namespace

bool FaultScope::Covers(const FaultScope& other) const {
  return (client.empty() || client == other.client) && (!command || command == other.command) &&
         (connection == 0 || connection == other.connection);
}

bool FaultScope::operator==(const FaultScope& other) const {
  return client == other.client && command == other.command && connection == other.connection;
}

bool Fault::Strikes(Operation kind, std::uint64_t occurrence) const {
  return kind == operation && When().Include(occurrence) &&
         (probability >= 1 || Draw(seed, occurrence) < probability);
}

std::optional<std::string> FaultError(const Fault& fault) {
  if (fault.first == 0) return "operations are counted from 1, not from 0";
  if (fault.times == 0) return "a fault that strikes 0 times has no effect; 1 or more is expected";
  if (!(fault.probability > 0 && fault.probability <= 1)) {
    return "a probability is above 0 and at most 1";
  }
  if (fault.operation == Operation::kOpen && !fault.scope.IsAll()) {
    return "an open has no client, command or connection yet, so it is bound to none";
  }
  const bool isTransfer =
      fault.operation == Operation::kRead || fault.operation == Operation::kWrite;
  if (fault.scope.command && !isTransfer) {
    return std::string("only read and write belong to a command, not ") +
           OperationName(fault.operation);
  }
  if (const auto* errnoFault = std::get_if<ErrnoFault>(&fault.effect)) {
    if (errnoFault->error <= 0) return "an errno above 0 is expected";
  }
  if (std::holds_alternative<ShortCount>(fault.effect) && !isTransfer) {
    return std::string("only read and write move bytes and can fall short, not ") +
           OperationName(fault.operation);
  }
  if (const auto* loss = std::get_if<DeviceLoss>(&fault.effect)) {
    if (loss->openError <= 0) return "an errno above 0 is expected for the opens after a loss";
  }
  return std::nullopt;
}

void FaultPlan::Add(const Fault& fault, std::uint64_t seen) {
  if (const auto error = FaultError(fault)) throw std::invalid_argument(*error);
  entries_.push_back({fault, {seen, 0}});
}

const Fault* FaultPlan::Strike(Operation operation, const FaultScope& scope) {
  const Fault* found = nullptr;
  for (Entry& entry : entries_) {
    const Fault& fault = entry.fault;
    if (fault.operation != operation || !fault.scope.Covers(scope)) continue;
    const std::uint64_t occurrence = ++entry.tally.seen;
    if (found != nullptr || !fault.Strikes(operation, occurrence)) continue;
    ++entry.tally.struck;
    found = &fault;
  }
  return found;
}

std::vector<Tally> FaultPlan::Tallies() const {
  std::vector<Tally> tallies;
  for (const Entry& entry : entries_) tallies.push_back(entry.tally);
  return tallies;
}

}  // namespace zulisim
