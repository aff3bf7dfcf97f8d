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

// An option or a positional argument of a command. The functions add conditions to it. Copyable.
class Option {
 public:
  explicit Option(CLI::Option* option) : option_(option) {}

  Option& Require();
  // Rejects a command line with both options.
  Option& Exclude(const Option& other);
  // Makes the value optional. Without one, the option has `value`.
  Option& MakeValueOptional(const std::string& value);

 private:
  CLI::Option* option_;
};

// A command of a program: its options, its help and its action.
//
// A name without a leading "-" adds a positional argument. The help shows `shape` for the value. A
// help text begins with a verb. The parser writes the targets, which must live until the action has
// run.
class Command {
 public:
  explicit Command(CLI::App* app);
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;

  // Adds a subcommand, which this command owns. A command with subcommands has no action.
  Command* AddCommand(const std::string& name, const std::string& about);

  // Starts a group: the help lists the options that follow under "`title`:".
  void BeginGroup(const std::string& title) { group_ = title; }
  // Sets the text at the end of the help, which is printed unchanged.
  void SetFooter(const std::string& text);
  // Sets the function that runs this command. It returns the exit status.
  void SetAction(std::function<int()> action) { action_ = std::move(action); }

  Option AddFlag(const std::string& names, bool* target, const std::string& help);
  Option AddText(const std::string& names, std::string* target, const std::string& shape,
                 const std::string& help);
  // Rejects an empty name.
  Option AddFile(const std::string& names, std::string* target, const std::string& help,
                 const std::string& shape = "FILE");
  // Takes an unsigned 32-bit number, decimal or hexadecimal.
  Option AddNumber(const std::string& names, std::optional<std::uint32_t>* target,
                   const std::string& help);
  // Takes one of `words`, and calls `choose` with its index.
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
  // Takes one of `words` after "=". Without "=", stores the first word.
  Option AddFlagOrWord(const std::string& name, const std::vector<std::string>& words,
                       std::string* target, const std::string& help);
  // Takes several values: an option separates them by commas, a positional argument takes all
  // words.
  Option AddList(const std::string& names, std::vector<std::string>* target,
                 const std::string& shape, const std::string& help);
  // Adds a repeatable option. Calls `take` with each value, in the order of the command line.
  Option AddRepeated(const std::string& name, const std::function<void(const std::string&)>& take,
                     const std::string& shape, const std::string& help);
  // Requires "PROGRAM [ARGUMENTS...]" at the end of the command line, optionally after "--".
  void TakeProgram(std::vector<std::string>* target);

  // After parsing: return whether the command line has the option, and its first value or "".
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
  // version. Throws UsageError for a wrong command line, and passes on exceptions of the action.
  int Run(int argc, const char* const* argv);

 private:
  std::unique_ptr<CLI::App> app_;
  std::unique_ptr<Command> root_;
};

}  // namespace common
