#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "simulator/scenario/scenario.h"

namespace zulisim {

// A part of an instruction, such as "status" with the value "0x80000001". Flags have no value.
struct Setting {
  std::string name;
  std::optional<std::string> value = {};
  std::uint32_t line = 1;  // in its file
  std::uint32_t column = 1;
};

// Splits a list such as "status:1,hold" for the separator ':'.
std::vector<Setting> SettingsOf(const std::string& text, char separator);

// What an option or a table of a scenario file says about a client, a reply or a fault.
struct Instruction {
  std::vector<Setting> settings;
  std::string origin;       // where it stands: "--lose read:3" or "loss.toml:7"
  std::string folder = {};  // the names of files are relative to it
  std::uint64_t seed = 0;   // of the file
};

// Takes a mistake in a setting, or in the instruction as a whole when the setting is null. May
// throw, which ends the reading of the instruction.
using MistakeSink = std::function<void(const Setting* setting, const std::string& message)>;

// Add what the instruction says to the scenario, or report every mistake in it.
using InstructionReader = void (*)(const Instruction& instruction, const MistakeSink& report,
                                   Scenario* scenario);
void ReadClient(const Instruction& instruction, const MistakeSink& report, Scenario* scenario);
void ReadReply(const Instruction& instruction, const MistakeSink& report, Scenario* scenario);
void ReadFault(const Instruction& instruction, const MistakeSink& report, Scenario* scenario);

// A kind of fault. Options, scenario files, 'zulisim tell', help texts and messages all follow from
// the table of kinds.
struct FaultKind {
  std::string option;     // its name on the command line and for 'zulisim tell': "fault"
  std::string key;        // its name in a scenario file: "errno"
  std::string operation;  // that it is for, as the option's form shows it
  std::string value;      // its form: "=ERRNO", "[=STATUS]" when it can be left out, or empty
  std::string help;
  // The effect of a value; empty where none is given. Throws InputError.
  FaultEffect (*parse)(const std::string& value);

  // "OPERATION:WHEN=ERRNO"
  std::string Form() const { return operation + ":WHEN" + value; }
};
const std::vector<FaultKind>& FaultKinds();

// The fields of a reply for options: "status:N", "hold" and so on.
std::vector<std::string> ReplyFieldForms();

// Sets the fields of a loss, as in "opens=3,errno=EIO". Throws InputError.
DeviceLoss ParseLoss(const std::string& fields, DeviceLoss loss);

}  // namespace zulisim
