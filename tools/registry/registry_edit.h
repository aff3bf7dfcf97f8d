#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tools/registry/registry_text.h"

namespace kaloctl {

// Puts a key without values at the end; without `id` it gets the first that no key has. Throws
// common::InputError for a key or an id that is there already.
RegistryKey& AddRegistryKey(RegistryText& registry, const std::string& keyPath,
                            std::optional<std::uint32_t> id);

// Takes a value out of a key. Throws common::InputError when it is not there.
void DeleteRegistryValue(RegistryKey& key, const std::string& name);

// True when the lines end in CR LF, with which the library loads no file.
bool HasCarriageReturns(std::string_view content);
std::string WithoutCarriageReturns(std::string_view content);

}  // namespace kaloctl
