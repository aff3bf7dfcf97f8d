#include "oscl/registry_loader.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <utility>

#include "oscl/bounded_string.h"
#include "oscl/last_error.h"
#include "oscl/registry.h"

namespace oscl {

namespace {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

// A line of the file, up to its first NUL.
using Line = char[kRegistryLineLimit + 1];

// The reading primitives of the format.
class RegistryScanner {
 public:
  RegistryScanner() {
    std::FILE* file = nullptr;
    fopen_s(&file, kRegistryPath, "r");
    if (file == nullptr) throw RegistryFailure(OSCL_ERROR_REG_FILE_UNREADABLE);
    file_.reset(file);
  }

  // Reads as scanf does with "%255[^\n]\n", several times faster: 1 to 255 characters up to the
  // line end, then all white space, blank lines and the indentation of the next line included.
  // False when the file is at its end, or at a line end, which only its first character can be.
  bool ReadLine(Line& line) {
    std::size_t length = 0;
    int character = Next();
    while (character != EOF && character != '\n') {
      line[length++] = static_cast<char>(character);
      if (length == kRegistryLineLimit) {
        character = Next();
        break;
      }
      character = Next();
    }
    if (length != 0) {
      while (character != EOF && std::isspace(character) != 0) character = Next();
    }
    std::ungetc(character, file_.get());
    line[length] = '\0';
    return length != 0;
  }

  // What follows the digits on their line is left for the next read.
  bool ReadHexadecimal(uint32_t& number) {
    unsigned int scanned = 0;
    if (std::fscanf(file_.get(), "%x\n", &scanned) != 1) return false;
    number = scanned;
    return true;
  }

 private:
  // The stream is this object's own, so no other thread can be inside it.
  int Next() { return getc_unlocked(file_.get()); }

  std::unique_ptr<std::FILE, CloseFile> file_;
};

// The number at the start of the line, 0 without one. One beyond 32 bits loses its upper bits.
uint32_t DecimalOf(const Line& line) {
  return static_cast<uint32_t>(std::strtol(line, nullptr, 10));
}

template <typename Bytes>
std::vector<uint8_t> BytesOf(const Bytes* source, std::size_t size) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(source);
  return std::vector<uint8_t>(bytes, bytes + size);
}

// Reads what follows "[VALUE]" into the key. False when the file ended before the value was whole;
// a value that lacks no more than its data is kept.
bool ReadValue(RegistryScanner& scanner, RegistryKeyRecord& key) {
  Line name;
  Line line;
  if (!scanner.ReadLine(name) || !scanner.ReadLine(line)) return false;
  const uint32_t type = DecimalOf(line);
  if (type != REG_SZ && type != REG_DWORD && type != REG_QWORD) {
    throw RegistryFailure(OSCL_ERROR_REG_TYPE_UNKNOWN);
  }
  RegistryValueRecord& value = key.values.emplace_back();
  value.name = name;
  value.type = type;
  if (!scanner.ReadLine(line)) return false;
  if (type == REG_SZ) {
    value.data = BytesOf(line, std::strlen(line) + 1);
  } else {
    // 4 bytes for a REG_QWORD too: callers are built against it.
    const uint32_t number = DecimalOf(line);
    value.data = BytesOf(&number, sizeof(number));
  }
  return true;
}

// Reads what follows "[KEY]".
bool ReadKey(RegistryScanner& scanner, RegistryKeyRecord& key) {
  Line name;
  if (!scanner.ReadHexadecimal(key.keyId) || !scanner.ReadLine(name)) return false;
  key.name = name;
  return true;
}

}  // namespace

RegistryImage LoadRegistry() {
  RegistryScanner scanner;
  RegistryImage image;
  std::optional<RegistryKeyRecord> key;
  Line line;
  bool more = scanner.ReadLine(line);
  while (more) {
    if (std::strcmp(line, kRegistryKeyMark) == 0) {
      if (key.has_value()) image.Add(std::move(*key));
      more = ReadKey(scanner, key.emplace());
    } else if (std::strcmp(line, kRegistryValueMark) == 0) {
      more = key.has_value() && ReadValue(scanner, *key);
    } else {
      throw RegistryFailure(OSCL_ERROR_REG_ITEM_UNKNOWN);
    }
    more = more && scanner.ReadLine(line);
  }
  if (key.has_value() && !key->name.empty()) image.Add(std::move(*key));
  return image;
}

}  // namespace oscl
