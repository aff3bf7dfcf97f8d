#include "simulator/fault.h"

#include <stdexcept>

namespace zulisim {

std::optional<std::string> FaultError(const Fault& fault) {
  if (fault.first == 0) return "operations are counted from 1, not from 0";
  if (fault.times == 0) return "a fault that strikes 0 times has no effect; 1 or more is expected";
  if (const auto* errnoFault = std::get_if<ErrnoFault>(&fault.effect)) {
    if (errnoFault->error <= 0) return "an errno above 0 is expected";
  }
  if (std::holds_alternative<ShortCount>(fault.effect) && fault.operation != Operation::kRead &&
      fault.operation != Operation::kWrite) {
    return std::string("only read and write move bytes and can fall short, not ") +
           OperationName(fault.operation);
  }
  if (const auto* loss = std::get_if<DeviceLoss>(&fault.effect)) {
    if (loss->openError <= 0) return "an errno above 0 is expected for the opens after a loss";
  }
  return std::nullopt;
}

void FaultPlan::Add(const Fault& fault) {
  if (const auto error = FaultError(fault)) throw std::invalid_argument(*error);
  faults_.push_back(fault);
}

const Fault* FaultPlan::Match(Operation operation, std::uint64_t occurrence) const {
  for (const Fault& fault : faults_) {
    if (fault.operation == operation && occurrence >= fault.first &&
        occurrence - fault.first < fault.times) {
      return &fault;
    }
  }
  return nullptr;
}

}  // namespace zulisim
