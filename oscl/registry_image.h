#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "oscl/registry.h"

namespace oscl {

// The longest line that the file is read by, and so the longest name and text.
constexpr std::size_t kRegistryLineLimit = 255;

// The most bytes that the data of a value read from the file has: a line and its NUL.
constexpr std::size_t kRegistryValueLimit = kRegistryLineLimit + 1;

// A registry operation that ends with a code other than 0.
class RegistryFailure : public std::exception {
 public:
  explicit RegistryFailure(uint32_t code) : code_(code) {}
  uint32_t code() const { return code_; }
  const char* what() const noexcept override { return "registry operation failed"; }

 private:
  uint32_t code_;
};

// Names and texts point into the image's block, or at what the caller handed over.
struct RegistryValueRecord {
  std::string_view name;
  uint32_t type = 0;
  uint32_t size = 0;      // bytes of the data with the NUL of a text; 0 without a data line
  std::string_view text;  // the data, but for the types that are numbers
  int32_t number = 0;     // the data of those
};

struct RegistryKeyRecord {
  uint32_t keyId = 0;
  std::string_view name;
  std::size_t firstValue = 0;
  uint32_t valueCount = 0;
};

inline bool IsRegistryNumber(uint32_t type) { return type == REG_DWORD || type == REG_QWORD; }

// The content of the registry file.
class RegistryImage {
 public:
  RegistryImage() { Load(); }
  RegistryImage(const RegistryImage&) = delete;
  RegistryImage& operator=(const RegistryImage&) = delete;

  // Reads the file in one piece, and parses it unless it is what was read before. One that ends
  // early, in whatever place, is read as far as it goes. Records found before are gone. Throws
  // RegistryFailure: 9 the file cannot be opened, 12 a value of an unknown type, 13 a line that is
  // neither "[KEY]" nor "[VALUE]" where one of them is due.
  void Load();

  // The first key of that id or name, and the first value of a key, or null.
  RegistryKeyRecord* FindById(uint32_t keyId);
  RegistryKeyRecord* FindByName(std::string_view name);
  RegistryValueRecord* FindValue(const RegistryKeyRecord& key, std::string_view name);

  // Adds a value after the key's others.
  RegistryValueRecord& AddValue(RegistryKeyRecord& key, std::string_view name);

  // Rewrites the file in one piece with the keys in list order. Throws RegistryFailure 10 when the
  // file cannot be opened or written; in the latter case it is left truncated.
  void Save() const;

 private:
  void Parse();
  std::string Rendered() const;

  std::string block_;
  // In list order, on which callers are built: the first key of the file, then the last, the last
  // but one, and so on to the second.
  std::vector<RegistryKeyRecord> keys_;
  std::vector<RegistryValueRecord> values_;  // in the order of the file
};

}  // namespace oscl
