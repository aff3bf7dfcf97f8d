#pragma once

#include <string>
#include <vector>

#include "common/input_error.h"
#include "simulator/scenario/scenario.h"

namespace zulisim {

// Adds what the text of a scenario file says to `scenario`, or changes nothing and returns all
// mistakes in it, in order of its lines. `path` is the file's; the files that it names are looked
// up beside it.
std::vector<common::Diagnostic> ReadScenario(const std::string& text, const std::string& path,
                                             Scenario* scenario);

// The same, but throws InputError with the diagnostics.
void AddScenario(const std::string& text, const std::string& path, Scenario* scenario);

}  // namespace zulisim
