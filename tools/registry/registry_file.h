#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "tools/registry/registry_text.h"

namespace kaloctl {

constexpr char kRegistryPath[] = "/etc/vrel_registry.txt";

// A failure that carries a registry code of the library. The text names the file.
class RegistryError : public std::runtime_error {
 public:
  RegistryError(const std::string& what, std::uint32_t code);
};

// Returns the keys that the library reads from the file. Throws a RegistryError that names the line
// and the remedy, or common::InputError if the file cannot be read.
RegistryText LoadRegistryFile(const std::string& path);

// Replaces the file at `path`, following symbolic links. The new file has the same owner and
// permissions. The old file stays complete until the new one is on the disk. Throws RegistryError.
void WriteRegistryFile(const std::string& path, const std::string& content);

}  // namespace kaloctl
