#pragma once

#include <string>

#include "tools/registry/registry_text.h"

namespace kaloctl {

constexpr char kRegistryPath[] = "/etc/vrel_registry.txt";

// Returns the keys that the library reads from the file. Throws std::runtime_error, which names the
// line, the remedy and the library's code, or common::InputError if the file cannot be read.
RegistryText LoadRegistryFile(const std::string& path);

// Replaces the file at `path`, following symbolic links. The new file has the same owner and
// permissions. The old file stays complete until the new one is on the disk. Throws
// std::runtime_error.
void WriteRegistryFile(const std::string& path, const std::string& content);

}  // namespace kaloctl
