#include "common/command_line.h"

#include <algorithm>

#include "common/input_error.h"
#include "common/number.h"
#include "common/text.h"

namespace common {
namespace {

// The command that a command line has come to, or the program itself.
const CLI::App& Chosen(const CLI::App& app) {
  for (const CLI::App* command : app.get_subcommands()) {
    if (!command->get_name().empty()) return Chosen(*command);
  }
  return app;
}

// "zulisim run"
std::string FullName(const CLI::App& command) {
  const CLI::App* parent = command.get_parent();
  return (parent == nullptr ? "" : FullName(*parent) + " ") + command.get_name();
}

// The names of its commands; groups of options have none.
std::string CommandNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    if (!command->get_name().empty()) names.push_back(command->get_name());
  }
  return Joined(names);
}

}  // namespace

CLI::Validator NotEmpty() {
  return CLI::Validator(
      [](const std::string& text) {
        return std::string(text.empty() ? "a name is expected, not an empty text" : "");
      },
      "");
}

std::string ErrorText(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App& chosen = Chosen(app);
  const std::string names = CommandNames(chosen);
  const std::vector<std::string> words = chosen.remaining();
  std::string text = error.what();
  if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError) && names.empty()) {
    text = "not expected: " + Joined(words, " ");  // which the parser lists from the last on
  }
  if (!names.empty()) {
    if (!words.empty()) {
      const bool isOption = words.front().rfind('-', 0) == 0;
      text = "unknown " + std::string(isOption ? "option " : "command ") + Quoted(words.front());
    }
    text += ": one of " + names + " is expected";
  }
  return app.get_name() + ": " + text + "\nTry '" + FullName(chosen) + " --help'.\n";
}

CLI::Option* AddFileOption(CLI::App& command, const std::string& name, std::string& target,
                           const std::string& help, const std::string& shape) {
  return command.add_option(name, target, help)->type_name(shape)->check(NotEmpty());
}

CLI::Option* AddNumberOption(CLI::App& command, const std::string& name,
                             std::optional<std::uint32_t>& target, const std::string& help) {
  const auto store = [name, &target](const std::string& text) {
    target = static_cast<std::uint32_t>(RequireNumber(name, text));
  };
  return command.add_option_function<std::string>(name, store, help)->type_name("N");
}

CLI::Option* AddWordOption(CLI::App& command, const std::string& name,
                           const std::vector<std::string>& words,
                           const std::function<void(std::size_t)>& choose,
                           const std::string& help) {
  const std::string shape = Joined(words, "|");
  const auto store = [=](const std::string& text) {
    const auto found = std::find(words.begin(), words.end(), text);
    if (found == words.end()) {
      throw InputError(name + " " + Quoted(text) + ": one of " + shape + " is expected");
    }
    choose(static_cast<std::size_t>(found - words.begin()));
  };
  return command.add_option_function<std::string>(name, store, help)->type_name(shape);
}

}  // namespace common
