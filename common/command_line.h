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

// The command lines of the programs. The parser behind it is slow to compile, so that only
// command_line.cpp includes it.
namespace common {

// The command line is wrong. The program adds where the help is.
class UsageError : public InputError {
 public:
  using InputError::InputError;
};

// An option or a positional argument of a command, to add a condition to. Copy it freely.
class Option {
 public:
  explicit Option(CLI::Option* option) : option_(option) {}

  Option& Require();
  // The command line may have this option or the other.
  Option& Exclude(const Option& other);
  // The option stands for `value` when it has none.
  Option& MakeValueOptional(const std::string& value);

 private:
  CLI::Option* option_;
};

// A command of a program: its options, its help and its action.
//
// A name without "-" in front adds a positional argument. `shape` is how the help shows a value.
// The help begins with a verb. Each target is written while the command line is parsed, and must
// live until the action has run.
class Command {
 public:
  explicit Command(CLI::App* app);
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;

  // Adds a command below this one, which then cannot run by itself. It lives as long as this.
  Command* AddCommand(const std::string& name, const std::string& about);

  // The help lists the options added from now on below "`title`:".
  void BeginGroup(const std::string& title) { group_ = title; }
  // The help ends with this, as it stands.
  void SetFooter(const std::string& text);
  // Runs when this command is chosen. Returns the exit status.
  void SetAction(std::function<int()> action) { action_ = std::move(action); }

  Option AddFlag(const std::string& names, bool* target, const std::string& help);
  Option AddText(const std::string& names, std::string* target, const std::string& shape,
                 const std::string& help);
  // Refuses an empty name.
  Option AddFile(const std::string& names, std::string* target, const std::string& help,
                 const std::string& shape = "FILE");
  // Takes an unsigned 32-bit number, decimal or hexadecimal.
  Option AddNumber(const std::string& names, std::optional<std::uint32_t>* target,
                   const std::string& help);
  // Takes one of `words`, and calls `choose` with its index.
  Option AddWord(const std::string& names, const std::vector<std::string>& words,
                 const std::function<void(std::size_t)>& choose, const std::string& help);
  // The same, which stores the value that belongs to the word.
  template <typename Value, typename Target>
  Option AddChoice(const std::string& names, Target* target,
                   const std::vector<std::pair<std::string, Value>>& choices,
                   const std::string& help) {
    std::vector<std::string> words;
    for (const auto& choice : choices) words.push_back(choice.first);
    return AddWord(
        names, words, [=](std::size_t index) { *target = choices[index].second; }, help);
  }
  // Takes one of `words` after "=", and the first of them without a value.
  Option AddFlagOrWord(const std::string& name, const std::vector<std::string>& words,
                       std::string* target, const std::string& help);
  // Takes several values: an option with commas between them, or a positional argument that takes
  // all words.
  Option AddList(const std::string& names, std::vector<std::string>* target,
                 const std::string& shape, const std::string& help);
  // An option that may be repeated. Calls `take` with each value, in the order of the command line.
  Option AddRepeated(const std::string& name, const std::function<void(const std::string&)>& take,
                     const std::string& shape, const std::string& help);
  // Requires "PROGRAM [ARGUMENTS...]" at the end of the command line, with or without "--" in
  // front.
  void TakeProgram(std::vector<std::string>* target);

  // Of the parsed command line: whether it has the option, and the first value or "".
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

  // The program itself, which has commands only.
  Command* root() { return root_.get(); }

  // Parses the command line and runs the chosen command's action, or prints the help or the
  // version. Throws UsageError for a wrong command line, and what the action throws.
  int Run(int argc, const char* const* argv);

 private:
  std::unique_ptr<CLI::App> app_;
  std::unique_ptr<Command> root_;
};

}  // namespace common
