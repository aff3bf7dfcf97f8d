#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "simulator/scenario/scenario.h"

namespace zulisim {

// A field of an instruction and its value, such as "status" and "0x80000001". A flag has no value.
struct Setting {
  std::string name;
  std::optional<std::string> value = {};
  std::uint32_t line = 1;  // line in the file
  std::uint32_t column = 1;
};

// Splits a list such as "status:1,hold", where ':' is the separator.
std::vector<Setting> SettingsOf(const std::string& text, char separator);

// An option, or a table of a scenario file, that describes a client, a reply or a fault.
struct Instruction {
  std::vector<Setting> settings;
  std::string origin;       // "--lose read:3" or "loss.toml:7"
  std::string folder = {};  // relative file names start at this folder
  std::uint64_t seed = 0;   // seed of the file
};

// Receives a mistake in a setting, or in the whole instruction if the setting is null. If this
// function throws, the parser stops reading the instruction.
using MistakeSink = std::function<void(const Setting* setting, const std::string& message)>;

// Adds the client, reply or fault to the scenario. If it has mistakes, reports all of them instead.
using InstructionReader = void (*)(const Instruction& instruction, const MistakeSink& report,
                                   Scenario* scenario);
void ReadClient(const Instruction& instruction, const MistakeSink& report, Scenario* scenario);
void ReadReply(const Instruction& instruction, const MistakeSink& report, Scenario* scenario);
void ReadFault(const Instruction& instruction, const MistakeSink& report, Scenario* scenario);

// A kind of fault. The table of kinds defines the options, the keys of scenario files, the words of
// 'zulisim tell', the help texts and the messages.
struct FaultKind {
  std::string option;     // on the command line and for 'zulisim tell': "fault"
  std::string key;        // in a scenario file: "errno"
  std::string operation;  // as help shows it: "OPERATION" or "read|write"
  std::string value;      // as help shows it: "=ERRNO", optional in brackets, or empty
  std::string help;
  // Parses a value, which is empty when the user gives none. Throws InputError.
  FaultEffect (*parse)(const std::string& value);

  // Returns for example "OPERATION:WHEN=ERRNO".
  std::string Form() const { return operation + ":WHEN" + value; }
};
const std::vector<FaultKind>& FaultKinds();

// Returns the fields of a reply in the form of the option: "status:N", "hold" and so on.
std::vector<std::string> ReplyFieldForms();

// Parses fields such as "opens=3,errno=EIO" and sets them in `loss`. Throws InputError.
DeviceLoss ParseLoss(const std::string& fields, DeviceLoss loss);

}  // namespace zulisim
