#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "simulator/device/operation.h"

namespace zulisim {

// One arrow, or one note, of a sequence diagram of driver, library and engine.
struct DiagramStep {
  enum class Kind { kToLibrary, kToDriver, kToEngine, kFromEngine, kNote };
  Kind kind = Kind::kNote;
  bool inferred = false;    // of the driver, which no device sees
  bool remarkable = false;  // a failure, a fault, a loss, a reconnect
  bool failed = false;
  bool negative = false;  // a reply whose status is below zero
  bool beginsCommand = false;
  std::string label;
  std::string remark;        // why it is as it is
  std::size_t at = 0;        // index of the operation that shows it
  bool isOperation = false;  // it is that operation
};

// Puts together what an engine's operations mean as a sequence of steps. What passes between driver
// and library is inferred from the way the library works: a request is a command of the driver,
// unless it repeats one whose write met a lost device; the reply goes back when all of it was read;
// a transfer that fails for good, or a reopening that does, fails the command.
class ExchangeHistory {
 public:
  // `index` is handed back in the steps.
  std::vector<DiagramStep> Add(const OperationRecord& record, std::size_t index);

 private:
  struct Command {  // under way at one client
    std::optional<std::uint32_t> id;
    std::optional<std::uint32_t> status;  // of a reply whose private data may follow
    int losses = 0;                       // in the transfer that is tried now
    bool lostInWrite = false;
  };

  void AddToDriver(const std::string& client, const std::string& label, bool failed);
  void BeginCommand(const OperationRecord& record);
  void Fail(const std::string& client, const std::string& why);
  void AddOperation(const OperationRecord& record);
  void AddConsequence(const OperationRecord& record);

  std::map<std::string, Command> commands_;  // by client
  std::vector<std::string> lost_;            // clients whose device was lost and is not back
  std::vector<DiagramStep> steps_;
};

}  // namespace zulisim
