#pragma once

#include <string>

#include "tools/registry/registry_text.h"

namespace kaloctl {

constexpr char kRegistryPath[] = "/etc/vrel_registry.txt";

// A failure with one of the library's registry codes; the text names the file and the line.
class RegistryError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The command line that runs a command of 'kaloctl registry' on the file at `path`, in quotes.
std::string RegistryCommand(const std::string& command, const std::string& path);

// The content of a registry file. Throws RegistryError.
std::string ReadRegistryFile(const std::string& path);

// What the library reads from it. Throws RegistryError, with what to do about a rewritten file.
RegistryText LoadRegistryFile(const std::string& path);

// The same, but a file that the library has rewritten is taken as it was before.
RegistryText LoadRegistryFileToEdit(const std::string& path);

// Throws common::InputError when it is in doubt who wrote what was read from `path`.
void RequireUndoubted(const RegistryText& registry, const std::string& path);

// Puts a new file in the place of the one that `path` leads to, through links as well, with the
// same owner and rights. The old one stays whole until the new one is on the disk. Throws
// RegistryError.
void WriteRegistryFile(const std::string& path, const std::string& content);

// The place in `registry.keys` of the key of that full path, by the library's ways: the path leads
// to an id, the id to a name, and the name to a key. Throws RegistryError when there is none, or
// another than the one meant; `file` is where the registry was read.
std::size_t FindRegistryKey(const RegistryText& registry, const std::string& keyPath,
                            const std::string& file = kRegistryPath);

}  // namespace kaloctl
