#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

// What the programs have in common in how they take a command line.
namespace common {

// For options that take a name: refuses an empty one.
CLI::Validator NotEmpty();

// What is wrong with a command line, and where the help is.
std::string ErrorText(const CLI::App& app, const CLI::ParseError& error);

// An option that takes the name of a file.
CLI::Option* AddFileOption(CLI::App& command, const std::string& name, std::string& target,
                           const std::string& help, const std::string& shape = "FILE");

// An option that takes an unsigned 32-bit number, decimal or hexadecimal. The parser throws
// InputError for anything else.
CLI::Option* AddNumberOption(CLI::App& command, const std::string& name,
                             std::optional<std::uint32_t>& target, const std::string& help);

// An option that takes one of a few words, and calls `choose` with its place among them. The parser
// throws InputError for any other.
CLI::Option* AddWordOption(CLI::App& command, const std::string& name,
                           const std::vector<std::string>& words,
                           const std::function<void(std::size_t)>& choose, const std::string& help);

// The same, which stores the value that goes with the word.
template <typename Value, typename Target>
CLI::Option* AddChoice(CLI::App& command, const std::string& name, Target& target,
                       const std::vector<std::pair<std::string, Value>>& choices,
                       const std::string& help) {
  std::vector<std::string> words;
  for (const auto& choice : choices) words.push_back(choice.first);
  const auto choose = [choices, &target](std::size_t at) { target = choices[at].second; };
  return AddWordOption(command, name, words, choose, help);
}

}  // namespace common
