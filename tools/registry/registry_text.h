#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kaloctl {

struct RegistryValue {
  std::string name;
  uint32_t type = 0;
  // The data: a text of REG_SZ, a number of any other type; nullopt when the file ends before it.
  std::optional<std::string> text;
  std::optional<uint32_t> number;
};

struct RegistryKey {
  uint32_t id = 0;
  std::string name;
  std::vector<RegistryValue> values;
};

// What the library reads from a registry file, with the keys in the order of the file.
struct RegistryText {
  std::vector<RegistryKey> keys;
  // The line at which reading ended although the file goes on.
  std::optional<std::size_t> endedEarly;
  // Of a rewritten file: why it may hold keys and values that nobody wrote. The library writes a
  // text with its line ends, so that what stands after a text can be a part of it. Else empty.
  std::string doubt;

  // The keys in the order in which the library searches and rewrites them: the first, then all
  // others from the last to the second.
  std::vector<const RegistryKey*> ListOrder() const;

  // What the library finds: the first in list order, or null.
  const RegistryKey* FindByName(std::string_view name) const;
  const RegistryKey* FindById(uint32_t id) const;
};

// A file that the library refuses to load.
class RegistryFault : public std::runtime_error {
 public:
  RegistryFault(std::size_t line, uint32_t code, const std::string& what)
      : std::runtime_error(what), line_(line), code_(code) {}
  std::size_t line() const { return line_; }
  uint32_t code() const { return code_; }

 private:
  std::size_t line_;
  uint32_t code_;
};

// The message of one of the library's registry codes.
const char* RegistryCodeText(uint32_t code);

// Reads as the library does: names and texts of at most 255 characters, indentation and blank lines
// passed over, marks compared exactly, blanks at their end included. Throws RegistryFault.
RegistryText ParseRegistry(std::string_view content);

// True for a file that the library has rewritten: it does not load any more.
bool IsRewritten(std::string_view content);

// ParseRegistry for a rewritten file: without the blanks, and with the keys in the order that they
// had before. Throws RegistryFault.
RegistryText ParseRewritten(std::string_view content);

enum class RegistryStyle {
  kLoadable,   // in the order given
  kRewritten,  // as RegSetValueEx leaves a file: in list order, with a blank after each line
};

std::string FormatRegistry(const RegistryText& registry, RegistryStyle style);

}  // namespace kaloctl
