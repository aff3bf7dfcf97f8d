#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "common/input_error.h"
#include "common/number.h"

namespace kaloctl {

// An option that takes an unsigned 32-bit number, decimal or hexadecimal.
inline CLI::Option* AddNumberOption(CLI::App& command, const std::string& name,
                                    std::optional<uint32_t>& target, const std::string& help) {
  return command
      .add_option_function<std::string>(
          name,
          [name, &target](const std::string& text) {
            target = ParseNumber(text);
            if (!target) {
              throw InputError(name + " '" + text +
                               "': a number of 0 to 4294967295 is expected, such as 4 or 0x30001");
            }
          },
          help)
      ->type_name("N");
}

// An option that takes one of a few words.
template <typename Value, typename Target>
CLI::Option* AddChoice(CLI::App& command, const std::string& name, Target& target,
                       std::initializer_list<std::pair<const char*, Value>> list,
                       const std::string& help) {
  const std::vector<std::pair<const char*, Value>> choices = list;
  std::string words;
  for (const auto& choice : choices) {
    words += std::string(words.empty() ? "" : "|") + choice.first;
  }
  return command
      .add_option_function<std::string>(
          name,
          [name, words, choices, &target](const std::string& text) {
            for (const auto& choice : choices) {
              if (text == choice.first) {
                target = choice.second;
                return;
              }
            }
            throw InputError(name + " '" + text + "': one of " + words + " is expected");
          },
          help)
      ->type_name(words);
}

}  // namespace kaloctl
