#pragma once

#include <cstdint>
#include <exception>
#include <forward_list>
#include <string>
#include <string_view>
#include <vector>

namespace oscl {

constexpr char kRegistryPath[] = "/etc/vrel_registry.txt";
constexpr char kRegistryKeyMark[] = "[KEY]";
constexpr char kRegistryValueMark[] = "[VALUE]";

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

struct RegistryValueRecord {
  std::string name;
  uint32_t type = 0;
  std::vector<uint8_t> data;  // empty when the file lacks the data line
};

struct RegistryKeyRecord {
  uint32_t keyId = 0;
  std::string name;
  std::vector<RegistryValueRecord> values;

  // The first value of that name, or null.
  RegistryValueRecord* Find(std::string_view valueName);
};

// The content of the registry file. The first key leads the list and every later one follows it
// directly, so the order is first, last, last but one, ..., second. Look-ups and the rewritten file
// follow that order, on which callers are built.
class RegistryImage {
 public:
  void Add(RegistryKeyRecord&& key);

  // The first key of that id or name, or null.
  RegistryKeyRecord* FindById(uint32_t keyId);
  RegistryKeyRecord* FindByName(std::string_view name);

  const std::forward_list<RegistryKeyRecord>& keys() const { return keys_; }

 private:
  std::forward_list<RegistryKeyRecord> keys_;
};

}  // namespace oscl
