#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "tools/registry/registry_text.h"

namespace kaloctl {

constexpr char kRegistryPath[] = "/etc/vrel_registry.txt";

// A failure with one of the library's registry codes. The text names the file.
class RegistryError : public std::runtime_error {
 public:
  RegistryError(const std::string& what, std::uint32_t code);
};

// Returns what the library reads from the file. Throws RegistryError with the line and the remedy,
// or common::InputError if the file cannot be read.
RegistryText LoadRegistryFile(const std::string& path);

// Replaces the file that `path` leads to, also through links, by one with the same owner and
// rights. The old file stays complete until the new one is on the disk. Throws RegistryError.
void WriteRegistryFile(const std::string& path, const std::string& content);

}  // namespace kaloctl
