#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/input_error.h"

namespace CLI {
class App;
}

// The command lines of the programs. Only command_line.cpp includes the parser library, which is
// slow to compile.
namespace common {

// A wrong command line. Command::Run adds a pointer to the help.
class UsageError : public InputError {
 public:
  using InputError::InputError;
};

// A program, or one of its commands: its options, its help and its action.
//
// A name without a leading "-" adds a positional argument. `shape` is the placeholder for the value
// in the help. Start each help text with a verb. The parser stores values in the targets, which
// must stay valid until the action has run.
class Command {
 public:
  // `footer` is the text at the end of the help, which is printed unchanged. Only a program has a
  // version.
  Command(const std::string& name, const std::string& about, const std::string& footer,
          const std::string& version = "");
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;

  // Adds a subcommand, which this command owns. A command with subcommands has no action.
  Command* AddCommand(const std::string& name, const std::string& about, const std::string& footer);

  // Starts a group. The help lists the options that are added after it under "`title`:".
  void BeginGroup(const std::string& title) { group_ = title; }
  // Sets the function that runs this command. The function returns the exit status.
  void SetAction(std::function<int()> action) { action_ = std::move(action); }

  void AddFlag(const std::string& names, bool* target, const std::string& help);
  void AddText(const std::string& names, std::string* target, const std::string& help,
               const std::string& shape = "");
  // Rejects an empty name.
  void AddFile(const std::string& names, std::string* target, const std::string& help,
               const std::string& shape = "FILE");
  // Accepts an unsigned 32-bit number, decimal or hexadecimal.
  void AddNumber(const std::string& names, std::optional<std::uint32_t>* target,
                 const std::string& help);
  // Accepts one of `words`.
  void AddChoice(const std::string& names, const std::vector<std::string>& words,
                 std::string* target, const std::string& help);
  // Accepts one of `words` after "=". If there is no "=", stores the first word.
  void AddFlagOrChoice(const std::string& name, const std::vector<std::string>& words,
                       std::string* target, const std::string& help);
  // Accepts several values. An option separates them by commas; a positional argument takes all
  // remaining words. Each value is one of `words`, if there are any.
  void AddList(const std::string& names, std::vector<std::string>* target, const std::string& shape,
               const std::string& help, const std::vector<std::string>& words = {});
  // Adds a repeatable option. Calls `take` with each value, in the order of the command line.
  void AddRepeated(const std::string& name, const std::function<void(const std::string&)>& take,
                   const std::string& shape, const std::string& help);
  // Requires "PROGRAM [ARGUMENTS...]" at the end of the command line, optionally after "--".
  void TakeProgram(std::vector<std::string>* target);

  // Requires options and arguments that were added before.
  void Require(const std::vector<std::string>& names);
  // Makes the value of an option optional. The default is `value`.
  void MakeValueOptional(const std::string& name, const std::string& value);

  // Returns true if the option was given. For use in the action.
  bool Has(const std::string& name) const;

  // For the program: parses the command line and runs the chosen command's action, or prints the
  // help or the version. Throws UsageError for a wrong command line. Does not catch exceptions of
  // the action.
  int Run(int argc, const char* const* argv);

 private:
  Command* Chosen();
  void StoreProgram(const std::vector<std::string>& separated);
  [[noreturn]] void Complain(const std::string& message) const;

  const std::shared_ptr<CLI::App> app_;
  std::string group_ = "Options";
  std::function<int()> action_;
  std::vector<std::string>* program_ = nullptr;
  std::list<Command> commands_;
};

}  // namespace common
