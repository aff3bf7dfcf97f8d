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
  enum class Kind { kToLibrary, kToDriver, kToEngine, kFromEngine, kNote, kLog };
  Kind kind = Kind::kNote;
  bool inferred = false;    // of the driver, which no device sees
  bool remarkable = false;  // a failure, a fault, a loss, a reconnect
  bool failed = false;
  bool negative = false;  // a reply whose status is below zero
  bool beginsCommand = false;
  std::string label;
  std::string remark;        // why it is as it is
  bool isOperation = false;  // it is the operation that shows it, and no consequence of that

  // The driver's own call failed.
  bool IsDriverFailure() const { return kind == Kind::kToDriver && failed; }
};

// Puts together what an engine's operations mean as a sequence of steps. What passes between driver
// and library is inferred from the way the library works: a request is a command of the driver,
// unless it repeats one whose write met a lost device; the reply goes back when all of it was read;
// a transfer that fails for good, or a reopening that does, fails the command; an open or connect
// that fails otherwise fails the call that asked for a handle.
class ExchangeHistory {
 public:
  std::vector<DiagramStep> Add(const OperationRecord& record);

 private:
  struct Command {  // under way at one client
    std::optional<std::uint32_t> id;
    std::optional<std::uint32_t> status;  // of a reply whose private data may follow
    int losses = 0;                       // in the transfer that is tried now
    bool lostInWrite = false;
  };

  void AddToDriver(const std::string& client, const std::string& label, bool failed);
  void BeginCommand(const OperationRecord& record);
  // False when no command of that client is under way.
  bool Fail(const std::string& client, const std::string& why);
  void FailOpening(const OperationRecord& record);
  void AddOperation(const OperationRecord& record);
  void AddConsequence(const OperationRecord& record);

  std::map<std::string, Command> commands_;  // by client
  std::vector<std::string> lost_;            // clients whose device was lost and is not back
  std::vector<DiagramStep> steps_;
};

}  // namespace zulisim
