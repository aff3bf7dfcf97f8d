#pragma once

#include "oscl/registry_image.h"

namespace oscl {

// Reads the registry file. A file that ends early, in whatever place, is read as far as it goes.
// Throws RegistryFailure: 9 the file cannot be opened, 12 a value of an unknown type, 13 a line
// that is neither "[KEY]" nor "[VALUE]" where one of them is due.
RegistryImage LoadRegistry();

}  // namespace oscl
