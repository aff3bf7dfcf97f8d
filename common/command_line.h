#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

// What the programs have in common in how they take a command line.
namespace command_line {

// For options that take a name: refuses an empty one.
inline CLI::Validator NotEmpty() {
  return CLI::Validator(
      [](const std::string& text) {
        return std::string(text.empty() ? "a name is expected, not an empty text" : "");
      },
      "");
}

// The command that a command line has come to, or the program itself.
inline const CLI::App& Chosen(const CLI::App& app) {
  for (const CLI::App* command : app.get_subcommands()) {
    if (!command->get_name().empty()) return Chosen(*command);
  }
  return app;
}

// "zulisim run"
inline std::string FullName(const CLI::App& command) {
  const CLI::App* parent = command.get_parent();
  return (parent == nullptr ? "" : FullName(*parent) + " ") + command.get_name();
}

// The names of its commands; groups of options have none.
inline std::string CommandNames(const CLI::App& app) {
  std::string names;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    const std::string& name = command->get_name();
    if (!name.empty()) names += (names.empty() ? "" : ", ") + name;
  }
  return names;
}

// What is wrong with a command line, and where the help is.
inline std::string ErrorText(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App& chosen = Chosen(app);
  const std::string names = CommandNames(chosen);
  const std::vector<std::string> words = chosen.remaining();
  std::string text = error.what();
  if (!names.empty()) {
    if (!words.empty()) {
      const bool isOption = words.front().rfind('-', 0) == 0;
      text = "'" + words.front() + "' is no " + (isOption ? "option" : "command");
    }
    text += ": one of " + names + " is expected";
  }
  return app.get_name() + ": " + text + "\nTry '" + FullName(chosen) + " --help'.\n";
}

}  // namespace command_line
