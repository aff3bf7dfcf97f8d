#pragma once

#include "oscl/registry_image.h"

namespace oscl {

// Rewrites the registry file with the keys in list order. Each line ends in a blank, which
// LoadRegistry refuses: callers are built against that asymmetry. Throws RegistryFailure 10 when
// the file cannot be opened or written; in the latter case it is left truncated.
void SaveRegistry(const RegistryImage& image);

}  // namespace oscl
