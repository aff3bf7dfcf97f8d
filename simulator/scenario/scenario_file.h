#pragma once

#include <string>
#include <vector>

#include "common/input_error.h"
#include "simulator/scenario/scenario.h"

namespace zulisim {

// Adds what a scenario file says to `scenario`, or changes nothing and returns all that is wrong
// with it, in order of its lines. `path` is the file's; those that it names are looked up beside
// it.
std::vector<common::Diagnostic> ReadScenario(const std::string& text, const std::string& path,
                                             Scenario* scenario);

// The same for the file at `path`. Throws InputError when it cannot be read.
std::vector<common::Diagnostic> ReadScenarioFile(const std::string& path, Scenario* scenario);

// The same, for callers that cannot go on: throws InputError with the diagnostics.
void AddScenarioFile(const std::string& path, Scenario* scenario);

}  // namespace zulisim
