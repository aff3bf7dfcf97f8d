#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace kaloctl {

// Returns the fields of gKaloDllState by name. A session is shown as its address, or as null.
nlohmann::ordered_json StateJson();

// Returns the same fields as lines of text.
std::string StateText();

}  // namespace kaloctl
