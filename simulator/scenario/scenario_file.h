#pragma once

#include <string>
#include <vector>

#include "common/input_error.h"
#include "simulator/scenario/scenario.h"

namespace zulisim {

// Parses the text of a scenario file and adds its instructions to `scenario`. If the text has
// mistakes, returns all of them in the order of lines and leaves `scenario` unchanged. File names
// in the text are relative to the folder of `path`.
std::vector<common::Diagnostic> ReadScenario(const std::string& text, const std::string& path,
                                             Scenario* scenario);

// Like the function above, but throws InputError with the mistakes.
void AddScenario(const std::string& text, const std::string& path, Scenario* scenario);

}  // namespace zulisim
