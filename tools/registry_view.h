#pragma once

#include <ostream>
#include <string>

#include "tools/palette.h"
#include "tools/registry_text.h"

namespace kaloctl {

// "string", "dword" or "qword", and the value's data as the library gives it.
std::string TypeText(uint32_t type);
std::string DataText(const RegistryValue& value);

// The keys as a tree, each with its id and its values. A key that the library does not reach is
// marked.
void PrintRegistry(std::ostream& out, const Palette& palette, const RegistryText& registry);

}  // namespace kaloctl
