#pragma once

#include <functional>
#include <string>
#include <vector>

#include "simulator/scenario/instruction.h"

namespace zulisim {

// An option that adds an instruction to a scenario. Numbers are decimal, or hexadecimal after "0x".
// Case does not matter in names of clients and errnos.
//
// TIME is a number with a unit, as in "1.5ms". WHEN selects operations by number, starting at 1:
// "3", "3-5", or "3-" for the third and all later ones. A scope limits which operations count:
// "3@KALO" only those of a client, "3@KALO:0x10" and "3@*:0x10" only those of a command, and "3@#2"
// only those of the second connection.
struct InstructionOption {
  std::string name;  // without dashes
  std::string form;  // form of the value
  std::string help;
  // Parses the value and adds the instruction. Throws InputError.
  std::function<void(const std::string& value, Scenario* scenario)> add;
};

// Returns "client", "reply" and one option for each kind of fault.
const std::vector<InstructionOption>& InstructionOptions();

// Parses the value of an option or of 'zulisim tell' and adds the fault. Throws InputError.
void AddFault(const FaultKind& kind, const std::string& value, Scenario* scenario);

}  // namespace zulisim
