#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "oscl/registry.h"

namespace oscl {

// The longest line in bytes, and so the longest name and text.
constexpr std::size_t kRegistryLineLimit = 255;

// The largest data of a value in bytes: a line and its NUL.
constexpr std::size_t kRegistryValueLimit = kRegistryLineLimit + 1;

// Thrown by a registry operation that fails with `code`.
class RegistryFailure : public std::exception {
 public:
  explicit RegistryFailure(uint32_t code) : code_(code) {}
  uint32_t code() const { return code_; }
  const char* what() const noexcept override { return "registry operation failed"; }

 private:
  uint32_t code_;
};

// Names and texts point into the image's block or into the caller's arguments.
struct RegistryValueRecord {
  std::string_view name;
  uint32_t type = 0;
  uint32_t size = 0;      // bytes of the data, including the NUL of a text; 0 without a data line
  std::string_view text;  // the data of the types that are not numbers
  int32_t number = 0;     // the data of the types that are
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
  // Parses `block` in place of the file. Throws 12 and 13 as Load does.
  explicit RegistryImage(std::string block) { Parse(std::move(block)); }
  RegistryImage(const RegistryImage&) = delete;
  RegistryImage& operator=(const RegistryImage&) = delete;

  // Reads the file in one piece, and parses it if its content has changed. Reads an incomplete file
  // up to its end. Invalidates all records. Throws RegistryFailure: 9 the file cannot be opened, 12
  // a value has an unknown type, 13 a line that should be "[KEY]" or "[VALUE]" is neither.
  void Load();

  // The keys in list order: the first of the file, then the last, and so on back to the second.
  const std::vector<RegistryKeyRecord>& keys() const { return keys_; }
  // The first of the `valueCount` values of `key`.
  const RegistryValueRecord* ValuesOf(const RegistryKeyRecord& key) const {
    return values_.data() + key.firstValue;
  }

  // Return the first key with that id or name, and the first value with that name in `key`, or
  // null.
  RegistryKeyRecord* FindById(uint32_t keyId);
  RegistryKeyRecord* FindByName(std::string_view name);
  RegistryValueRecord* FindValue(const RegistryKeyRecord& key, std::string_view name);

  // Adds a value after the other values of `key`.
  RegistryValueRecord& AddValue(RegistryKeyRecord& key, std::string_view name);

  // Rewrites the file in one piece with the keys in list order. Throws RegistryFailure 10 if the
  // file cannot be opened, or if a write fails, which leaves the file truncated.
  void Save() const;
  // What Save writes.
  std::string Rendered() const;

 private:
  void Parse(std::string block);
  void ParseItems();

  std::string block_;
  // Contract: in list order, which callers rely on: the first key of the file, then the last, the
  // one before it, and so on back to the second.
  std::vector<RegistryKeyRecord> keys_;
  std::vector<RegistryValueRecord> values_;  // in file order
};

}  // namespace oscl
