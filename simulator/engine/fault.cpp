#include "simulator/engine/fault.h"

#include <stdexcept>

#include "common/format.h"
#include "common/text.h"

namespace zulisim {
namespace {

// Returns an evenly distributed number from 0 up to, but not including, 1 (splitmix64).
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

std::optional<std::string> FaultError(const Fault& fault) {
  if (fault.when.first == 0) return "positions count from 1";
  if (fault.when.times == 0) return "a fault must happen at least once";
  if (!(fault.probability > 0 && fault.probability <= 1)) {
    return "the probability must be above 0 and at most 1";
  }
  if (fault.operation == Operation::kOpen && !fault.scope.IsAll()) {
    return "an open has no client, command or connection yet; leave them out";
  }
  const std::string name = OperationName(fault.operation);
  if (fault.scope.command && (Bit(fault.operation) & ShortCount::kOperations) == 0) {
    return "only read and write belong to a command, not " + name;
  }
  const unsigned possible =
      std::visit([](const auto& effect) { return effect.kOperations; }, fault.effect);
  if ((possible & Bit(fault.operation)) == 0) {
    const char* const names = possible == ReplyFault::kOperations ? "write" : "read and write";
    return common::Format("this kind of fault is only for {}, not {}", names, name);
  }
  const auto* errnoFault = std::get_if<ErrnoFault>(&fault.effect);
  const auto* loss = std::get_if<DeviceLoss>(&fault.effect);
  if ((errnoFault != nullptr && errnoFault->error <= 0) ||
      (loss != nullptr && loss->openError <= 0)) {
    return "the errno must be above 0";
  }
  return std::nullopt;
}

std::string InstructionCount::Text() const {
  const std::string times = happened == 0 ? "never happened"
                            : IsTooLow()
                                ? common::Format("happened {} of {} times", happened, wanted)
                                : "happened " + common::Counted(happened, "time");
  return common::Format("{}: {} in {}", common::Printable(origin), times,
                        common::Counted(seen, unit));
}

void FaultPlan::Add(const Fault& fault) {
  if (const auto error = FaultError(fault)) throw std::invalid_argument(*error);
  const bool isCertain = fault.probability >= 1 && fault.when.times != kForever;
  entries_.push_back(
      {fault, {fault.origin, OperationName(fault.operation), isCertain ? fault.when.times : 1}});
}

const Fault* FaultPlan::Next(Operation operation, const FaultScope& scope) {
  const Fault* found = nullptr;
  for (Entry& entry : entries_) {
    const Fault& fault = entry.fault;
    if (fault.operation != operation || !fault.scope.Covers(scope)) continue;
    const std::uint64_t occurrence = ++entry.count.seen;
    if (found != nullptr || !fault.when.Include(occurrence)) continue;
    if (fault.probability < 1 && Draw(fault.seed, occurrence) >= fault.probability) continue;
    ++entry.count.happened;
    found = &fault;
  }
  return found;
}

void FaultPlan::AddCounts(std::vector<InstructionCount>* counts) const {
  for (const Entry& entry : entries_) counts->push_back(entry.count);
}

}  // namespace zulisim
