#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kaloctl {

struct RegistryValue {
  std::string name;
  std::uint32_t type = 0;           // REG_SZ, REG_DWORD or REG_QWORD
  std::optional<std::string> data;  // a text or a signed number; nullopt if the file ends before it
};

struct RegistryKey {
  std::uint32_t id = 0;
  std::string name;
  std::vector<RegistryValue> values;

  // The value of that name, or null.
  RegistryValue* Find(std::string_view valueName);
};

// Where the library stops reading a file.
struct RegistryStop {
  std::size_t line = 1;
  std::uint32_t code = 0;  // of the library; 0 if it ignores the rest without an error
  std::string message;

  // "'path', line 4: message"
  std::string Text(const std::string& path) const;
};

// What the library reads from a registry file.
struct RegistryText {
  std::vector<RegistryKey> keys;     // in the order of the file; none after an error
  std::optional<RegistryStop> stop;  // nullopt if the library reads the whole file
  // Of a repaired file: it may hold keys and values that no program wrote as such. The library
  // writes a text with its line feeds, so that whatever follows a text may be a part of it.
  bool doubtful = false;

  // The keys in the order in which the library searches them: the first of the file, then the last,
  // and so on back to the second.
  std::vector<const RegistryKey*> ListOrder() const;
  // What the library finds: the first in list order, or null.
  const RegistryKey* FindByName(std::string_view name) const;
  const RegistryKey* FindById(std::uint32_t id) const;
  // False for a key that another key of its name or id hides from the library.
  bool Reaches(const RegistryKey& key) const;
};

// Reads `content` with the library's own reader.
RegistryText ParseRegistry(const std::string& content);

// The content of a file that the library loads, with the keys in the order given.
std::string FormatRegistry(const RegistryText& registry);

// Why the library does not load a file, if that can be repaired: it has rewritten the file, or the
// lines end in CR LF. Else empty.
std::string RepairableDamage(std::string_view content);

// Removes carriage returns, and undoes what the library did to a file that it rewrote: the blanks
// at the line ends and the order of the keys.
RegistryText RepairRegistry(std::string_view content);

}  // namespace kaloctl
