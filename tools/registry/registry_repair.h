#pragma once

#include <string>
#include <string_view>

#include "tools/registry/registry_text.h"

namespace kaloctl {

// Why the library does not load a file, if that can be repaired: it has rewritten the file, or the
// lines end in CR LF. Else empty.
std::string RepairableDamage(std::string_view content);

// Removes carriage returns, and undoes what the library did to a file that it rewrote: the blanks
// at the line ends and the order of the keys.
RegistryText RepairRegistry(std::string_view content);

}  // namespace kaloctl
