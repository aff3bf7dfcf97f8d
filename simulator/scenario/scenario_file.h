#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "simulator/scenario/scenario.h"

namespace zulisim {

// What is wrong at a place of a file; lines and columns count from 1.
struct Diagnostic {
  std::uint32_t line = 1;
  std::uint32_t column = 1;
  std::string message;
};

// "scenario.toml:12:3: unknown key 'stauts' in a reply; did you mean 'status'?"
std::string DiagnosticText(const std::string& file, const Diagnostic& diagnostic);

// Adds what a scenario file says to `scenario`, or changes nothing and returns all that is wrong
// with it, in order of its lines. Files that it names are looked up from `folder` on.
std::vector<Diagnostic> ReadScenario(const std::string& text, const std::string& folder,
                                     Scenario* scenario);

// The same for the file at `path`. Throws std::runtime_error when it cannot be read.
std::vector<Diagnostic> ReadScenarioFile(const std::string& path, Scenario* scenario);

// The same, for callers that cannot go on: throws std::invalid_argument with the diagnostics.
void AddScenarioFile(const std::string& path, Scenario* scenario);

}  // namespace zulisim
