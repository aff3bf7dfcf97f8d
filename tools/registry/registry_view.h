#pragma once

#include <ostream>
#include <string>

#include "common/colours.h"
#include "tools/registry/registry_text.h"

namespace kaloctl {

// "string", "dword" or "qword".
std::string TypeText(uint32_t type);
// The number of a value that is not a text, with its sign, as the file has it.
std::string NumberText(const RegistryValue& value);
// The value's data, for people.
std::string DataText(const RegistryValue& value);

// "1 key", "2 keys"
std::string CountText(const RegistryText& registry);

// False for a key that another one of its name or id hides from the library.
bool Reaches(const RegistryText& registry, const RegistryKey& key);

// The keys as a tree, each with its id and its values. A key that the library does not reach is
// marked.
void PrintRegistry(std::ostream& out, const common::Colours& colours, const RegistryText& registry);

}  // namespace kaloctl
