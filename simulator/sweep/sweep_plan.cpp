#include "simulator/sweep/sweep_plan.h"

#include <algorithm>
#include <map>

#include "common/format.h"
#include "common/input_error.h"
#include "common/number.h"
#include "common/text.h"
#include "simulator/scenario/values.h"

namespace zulisim {
namespace {

using common::Format;

constexpr unsigned kTransfers = Bit(Operation::kRead) | Bit(Operation::kWrite);
constexpr unsigned kCalls = kTransfers | Bit(Operation::kIoctl);

struct FaultRow {
  const char* name;
  unsigned operations;  // a set of Bit
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

bool Selects(const std::vector<std::string>& which, std::size_t position, Operation operation) {
  return which.empty() || std::any_of(which.begin(), which.end(), [&](const std::string& word) {
           const bool isPosition = word.find_first_of("0123456789") == 0;
           return isPosition ? ParseOccurrences(word).Include(position)
                             : ParseOperation(word) == operation;
         });
}

// Returns the text that binds a fault to client and command, such as "@KALO:0x10".
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
  const std::vector<std::string> known = SweepFaultNames();
  for (const std::string& name : names) {
    if (std::find(known.begin(), known.end(), name) != known.end()) continue;
    throw common::InputError(Format("--faults: unknown fault {}; expected {}{}",
                                    common::Quoted(name), common::Joined(known),
                                    common::NearestHint(name, known)));
  }
  for (const std::string& word : which)
    Selects({word}, 1, Operation::kOpen);  // throws if malformed
  std::vector<SweepFault> plan;
  std::map<std::string, unsigned> counts;  // by kind and scope
  for (std::size_t i = 0; i < operations.size(); ++i) {
    const OperationRecord& record = operations[i];
    const std::string kind = OperationName(record.operation);
    const std::string scope = bound ? ScopeText(record) : "";
    const unsigned count = ++counts[kind + scope];
    if (!Selects(which, i + 1, record.operation) || record.abandoned) continue;
    for (const FaultRow& row : kFaultRows) {
      const bool isSelected =
          names.empty() || std::find(names.begin(), names.end(), row.name) != names.end();
      if (!isSelected || (row.operations & Bit(record.operation)) == 0) continue;
      for (const char* from : {"", "-"}) {
        if (*from != '\0' && !row.isRepeatable) continue;
        plan.push_back({i,
                        row.name,
                        *from != '\0',
                        {row.option, Format("{}:{}{}{}{}", kind, count, from, scope, row.value)}});
      }
    }
  }
  return plan;
}

}  // namespace zulisim
