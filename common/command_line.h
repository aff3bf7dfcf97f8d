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
class Option;
}  // namespace CLI

// The command lines of the programs. Only command_line.cpp includes the parser library, which is
// slow to compile.
namespace common {

// A wrong command line. CommandLine::Run adds a pointer to the help.
class UsageError : public InputError {
 public:
  using InputError::InputError;
};

// An option or a positional argument of a command. The member functions add constraints to it.
// Copyable.
class Option {
 public:
  explicit Option(CLI::Option* option) : option_(option) {}

  Option& Require();
  // Rejects a command line that has both options.
  Option& Exclude(const Option& other);
  // Makes the value optional. The default is `value`.
  Option& MakeValueOptional(const std::string& value);

 private:
  CLI::Option* option_;
};

// A command of a program: its options, its help and its action.
//
// A name without a leading "-" adds a positional argument. `shape` is the placeholder for the value
// in the help. Start each help text with a verb. The parser stores values in the targets, which
// must stay valid until the action has run.
class Command {
 public:
  explicit Command(CLI::App* app);
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;

  // Adds a subcommand, which this command owns. A command with subcommands has no action.
  Command* AddCommand(const std::string& name, const std::string& about);

  // Starts a group. The help lists the options that are added after it under "`title`:".
  void BeginGroup(const std::string& title) { group_ = title; }
  // Sets the text at the end of the help, which is printed unchanged.
  void SetFooter(const std::string& text);
  // Sets the function that runs this command. The function returns the exit status.
  void SetAction(std::function<int()> action) { action_ = std::move(action); }

  Option AddFlag(const std::string& names, bool* target, const std::string& help);
  Option AddText(const std::string& names, std::string* target, const std::string& shape,
                 const std::string& help);
  // Rejects an empty name.
  Option AddFile(const std::string& names, std::string* target, const std::string& help,
                 const std::string& shape = "FILE");
  // Accepts an unsigned 32-bit number, decimal or hexadecimal.
  Option AddNumber(const std::string& names, std::optional<std::uint32_t>* target,
                   const std::string& help);
  // Accepts one of `words`, and calls `choose` with its index.
  Option AddWord(const std::string& names, const std::vector<std::string>& words,
                 const std::function<void(std::size_t)>& choose, const std::string& help);
  // The same, but stores the value of the chosen word.
  template <typename Value, typename Target>
  Option AddChoice(const std::string& names, Target* target,
                   const std::vector<std::pair<std::string, Value>>& choices,
                   const std::string& help) {
    std::vector<std::string> words;
    for (const auto& choice : choices) words.push_back(choice.first);
    return AddWord(
        names, words, [=](std::size_t index) { *target = choices[index].second; }, help);
  }
  // Accepts one of `words` after "=". If there is no "=", stores the first word.
  Option AddFlagOrWord(const std::string& name, const std::vector<std::string>& words,
                       std::string* target, const std::string& help);
  // Accepts several values. An option separates them by commas; a positional argument takes all
  // remaining words.
  Option AddList(const std::string& names, std::vector<std::string>* target,
                 const std::string& shape, const std::string& help);
  // Adds a repeatable option. Calls `take` with each value, in the order of the command line.
  Option AddRepeated(const std::string& name, const std::function<void(const std::string&)>& take,
                     const std::string& shape, const std::string& help);
  // Requires "PROGRAM [ARGUMENTS...]" at the end of the command line, optionally after "--".
  void TakeProgram(std::vector<std::string>* target);

  // For use after parsing. Has returns true if the option was given. ValueOf returns its first
  // value, or "" if there is none.
  bool Has(const std::string& name) const;
  std::string ValueOf(const std::string& name) const;

 private:
  friend class CommandLine;

  Option InGroup(CLI::Option* option) const;
  Command* Chosen();
  void StoreProgram(const std::vector<std::string>& separated);
  [[noreturn]] void Complain(const std::string& message) const;

  CLI::App* app_;
  std::string group_ = "Options";
  std::function<int()> action_;
  std::vector<std::string>* program_ = nullptr;
  std::list<Command> commands_;
};

// A program with commands.
class CommandLine {
 public:
  CommandLine(const std::string& name, const std::string& about, const std::string& version);
  ~CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  // Returns the program itself, to add commands to.
  Command* root() { return root_.get(); }

  // Parses the command line and runs the chosen command's action, or prints the help or the
  // version. Throws UsageError for a wrong command line. Does not catch exceptions of the action.
  int Run(int argc, const char* const* argv);

 private:
  std::unique_ptr<CLI::App> app_;
  std::unique_ptr<Command> root_;
};

}  // namespace common
