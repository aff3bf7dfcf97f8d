#include "simulator/sweep/sweep_plan.h"

#include <algorithm>
#include <map>

#include "common/format.h"
#include "common/number.h"
#include "simulator/scenario/values.h"

namespace zulisim {
namespace {

using common::Format;

constexpr unsigned kTransfers = Bit(Operation::kRead) | Bit(Operation::kWrite);
constexpr unsigned kCalls = kTransfers | Bit(Operation::kIoctl);

struct FaultRow {
  const char* name;
  unsigned operations;  // the operations that can have this fault, as bits of Bit()
  const char* option;
  const char* value;         // follows "read:3"
  bool isRepeatable = true;  // false if a repetition changes nothing
} constexpr kFaultRows[] = {
    {"error", kEveryOperation, "--fault", "=EIO"},
    {"lost", kCalls, "--lose", ""},
    {"gone", kCalls, "--lose", ",opens=all,errno=ENOENT", false},
    {"dropped", Bit(Operation::kRead), "--lose", ",drop-replies"},
    {"short", kTransfers, "--short", "=half"},
    {"refused", Bit(Operation::kWrite), "--refuse", ""},
    {"no-reply", Bit(Operation::kWrite), "--no-reply", ""},
    {"busy", kCalls, "--fault", "=EAGAIN"},
    {"enoent", Bit(Operation::kOpen), "--fault", "=ENOENT"},
    {"eacces", Bit(Operation::kOpen), "--fault", "=EACCES"},
};

// Selects the operations that `word` names: a position or a kind.
bool Selects(const std::string& word, std::size_t position, Operation operation) {
  return word.find_first_of("0123456789") == 0 ? ParseOccurrences(word).Include(position)
                                               : ParseOperation(word) == operation;
}

// Returns the scope that limits a fault to a client and command, such as "@KALO:0x10".
std::string ScopeText(const OperationRecord& record) {
  if (!record.IsTransfer() || record.client.empty()) return "";
  return "@" + record.client + (record.commandId ? ":" + common::Hex(*record.commandId) : "");
}

}  // namespace

std::vector<std::string> SweepFaultNames() {
  std::vector<std::string> names;
  for (const FaultRow& row : kFaultRows) names.emplace_back(row.name);
  return names;
}

std::vector<SweepFault> PlanSweep(const std::vector<OperationRecord>& operations,
                                  const std::vector<std::string>& names,
                                  const std::vector<std::string>& which, bool bound) {
  for (const std::string& word : which) Selects(word, 1, Operation::kOpen);  // throws if malformed
  std::vector<SweepFault> plan;
  std::map<std::string, unsigned> counts;  // by kind and scope
  for (std::size_t i = 0; i < operations.size(); ++i) {
    const OperationRecord& record = operations[i];
    const std::string kind = OperationName(record.operation);
    const std::string scope = bound ? ScopeText(record) : "";
    const unsigned count = ++counts[kind + scope];
    const auto selects = [&](const std::string& w) { return Selects(w, i + 1, record.operation); };
    if (!which.empty() && std::none_of(which.begin(), which.end(), selects)) continue;
    for (const FaultRow& row : kFaultRows) {
      if (record.abandoned || (row.operations & Bit(record.operation)) == 0) continue;
      const bool isNamed = std::find(names.begin(), names.end(), row.name) != names.end();
      if (!names.empty() && !isNamed) continue;
      for (const bool repeated : {false, true}) {
        if (repeated && !row.isRepeatable) continue;
        plan.push_back({i, row.name, repeated,
                        Format("{} {}:{}{}{}{}", row.option, kind, count, repeated ? "-" : "",
                               scope, row.value)});
      }
    }
  }
  return plan;
}

}  // namespace zulisim
