#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kaloctl {

struct RegistryValue {
  std::string name;
  std::uint32_t type = 0;           // REG_SZ, REG_DWORD or REG_QWORD
  std::optional<std::string> data;  // string or signed number; nullopt if the file ends before it
};

struct RegistryKey {
  std::uint32_t id = 0;
  std::string name;
  std::vector<RegistryValue> values;

  // Returns the value with this name, or null.
  RegistryValue* Find(std::string_view valueName);
};

// The line at which the library stops reading a file: one that is wrong, or the one after the file
// if its last key or value is incomplete.
struct RegistryStop {
  std::size_t line = 1;
  std::uint32_t code = 0;  // the library's error; 0 if it silently ignores the rest
  std::string message;

  // Returns "'path', line 4: message".
  std::string Text(const std::string& path) const;
};

// The keys that the library reads from a registry file.
struct RegistryText {
  std::vector<RegistryKey> keys;     // in the order of the file; none after an error
  std::optional<RegistryStop> stop;  // nullopt if the library reads the whole file
  std::vector<std::string> misread;  // the numbers that the library reads otherwise than written
  // True if a repaired file may hold keys and values that no program has created. The library
  // writes line feeds in a text unchanged, so a line that looks like a key or value may be part of
  // a text.
  bool doubtful = false;

  // Returns the key that the library finds, or null. The library searches the first key of the
  // file, then the last, and so on back to the second.
  const RegistryKey* Find(const std::function<bool(const RegistryKey&)>& wanted) const;
  const RegistryKey* FindByName(std::string_view name) const;
  const RegistryKey* FindById(std::uint32_t id) const;
  // Returns false if another key with the same name or id hides this key.
  bool Reaches(const RegistryKey& key) const;
};

// Returns a decimal or hexadecimal number of 32 bits as the library writes it, "5" or "-5", or
// nullopt for any other text.
std::optional<std::string> NumberText(std::string_view text);

// Parses `content` with the library's own parser.
RegistryText ParseRegistry(const std::string& content);

// Returns the content of a file with these keys, in this order.
std::string FormatRegistry(const RegistryText& registry);

// Returns true if the library has rewritten the file. The library does not load such a file.
bool IsRewritten(std::string_view content);

// Undoes the changes that the library makes when it writes a file: blanks at line ends and a
// different order of the keys.
RegistryText RepairRegistry(const std::string& content);

}  // namespace kaloctl
