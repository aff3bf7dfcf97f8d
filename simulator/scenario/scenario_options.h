#pragma once

#include <functional>
#include <string>
#include <vector>

#include "simulator/scenario/instruction.h"

namespace zulisim {

// The instructions of a command line. Numbers are decimal, or hexadecimal after "0x". Letters count
// alike in either case in the names of clients and errnos.
//
// TIME is a number with its unit, as in "1.5ms". WHEN picks operations of a kind, counted from 1:
// "3", "3-5", or "3-" for the third and all after it. "3@KALO" counts only those of a client,
// "3@KALO:0x10" and "3@*:0x10" those of a command, "3@#2" those of the second connection.
struct InstructionOption {
  std::string name;  // without dashes
  std::string form;  // of its value
  std::string help;
  // Adds what the value says. Throws InputError.
  std::function<void(const std::string& value, Scenario* scenario)> add;
};

// "client", "reply" and one for each kind of fault.
const std::vector<InstructionOption>& InstructionOptions();

// Adds the fault of an option or of 'zulisim tell'. Throws InputError.
void AddFault(const FaultKind& kind, const std::string& value, Scenario* scenario);

}  // namespace zulisim
