#include "tools/registry/registry_text.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>

#include "common/number.h"
#include "common/text.h"
#include "oscl/last_error.h"
#include "oscl/registry.h"

namespace kaloctl {
namespace {

constexpr char kKeyMark[] = "[KEY]";
constexpr char kValueMark[] = "[VALUE]";
constexpr std::size_t kLineLimit = 255;

bool IsSpace(char character) { return std::isspace(static_cast<unsigned char>(character)) != 0; }

// The number at the start of the line, 0 without one; bits above the 32nd are lost.
uint32_t DecimalOf(const std::string& line) {
  return static_cast<uint32_t>(std::strtol(line.c_str(), nullptr, 10));
}

class RegistryParser {
 public:
  explicit RegistryParser(std::string_view content) : content_(content) {}

  RegistryText Parse() {
    RegistryText registry;
    std::string mark;
    bool more = ReadLine(mark);
    while (more) {
      const std::size_t line = lineOfText_;
      if (mark == kKeyMark) {
        more = ReadKey(registry.keys.emplace_back());
      } else if (mark == kValueMark) {
        more = !registry.keys.empty() && ReadValue(registry.keys.back());
      } else {
        throw RegistryFault(
            line, OSCL_ERROR_REG_ITEM_UNKNOWN,
            "'" + common::Printable(mark) + "': [KEY] or [VALUE] is expected" + BlankHint(mark));
      }
      if (!more && position_ < content_.size()) registry.endedEarly = line;
      more = more && ReadLine(mark);
    }
    if (registry.keys.empty() && !content_.empty()) registry.endedEarly = 1;
    // A key that the end of the file leaves without a name is not kept.
    if (!registry.keys.empty() && registry.keys.back().name.empty()) registry.keys.pop_back();
    return registry;
  }

 private:
  static std::string BlankHint(const std::string& mark) {
    const bool known = mark == std::string(kKeyMark) + " " || mark == std::string(kValueMark) + " ";
    return known ? " without the blank after it" : "";
  }

  // At most 255 characters up to the line end, then all white space after it. False at a line end
  // and at the end of the file.
  bool ReadLine(std::string& line) {
    lineOfText_ = lineNumber_;
    const std::string_view rest = content_.substr(position_);
    const std::size_t length = std::min({rest.find('\n'), rest.size(), kLineLimit});
    if (length == 0) return false;
    line = rest.substr(0, length);
    line.resize(std::min(line.find('\0'), line.size()));
    position_ += length;
    SkipSpace();
    return true;
  }

  void SkipSpace() {
    while (position_ < content_.size() && IsSpace(content_[position_])) {
      if (content_[position_] == '\n') ++lineNumber_;
      ++position_;
    }
  }

  // What follows the digits on their line is the next line.
  bool ReadHexadecimal(uint32_t& number) {
    const std::size_t end = content_.find_first_not_of("+-0123456789abcdefABCDEFxX", position_);
    const std::string digits(content_.substr(position_, end - position_));
    int length = 0;
    // As the library, which takes a "0x" for 0 that no digits follow.
    if (std::sscanf(digits.c_str(), "%x%n", &number, &length) != 1) return false;
    position_ += static_cast<std::size_t>(length);
    SkipSpace();
    return true;
  }

  bool ReadKey(RegistryKey& key) { return ReadHexadecimal(key.id) && ReadLine(key.name); }

  bool ReadValue(RegistryKey& key) {
    RegistryValue value;
    std::string line;
    if (!ReadLine(value.name) || !ReadLine(line)) return false;
    value.type = DecimalOf(line);
    if (value.type != REG_SZ && value.type != REG_DWORD && value.type != REG_QWORD) {
      throw RegistryFault(lineOfText_, OSCL_ERROR_REG_TYPE_UNKNOWN,
                          "type '" + common::Printable(line) + "' of value '" +
                              common::Printable(value.name) +
                              "': 1 (text), 4 (number) or 11 (number) is expected");
    }
    const bool whole = ReadLine(line);
    if (whole && value.type == REG_SZ) value.text = line;
    if (whole && value.type != REG_SZ) value.number = DecimalOf(line);
    key.values.push_back(std::move(value));
    return whole;
  }

  std::string_view content_;
  std::size_t position_ = 0;
  std::size_t lineNumber_ = 1;
  // Of what was read last.
  std::size_t lineOfText_ = 1;
};

// See RegistryText::doubt.
std::string DoubtAbout(std::string_view content, const RegistryText& registry) {
  if (FormatRegistry(registry, RegistryStyle::kRewritten) != content) {
    return "not every line is as the library writes it";
  }
  std::string after;
  for (const RegistryKey* key : registry.ListOrder()) {
    if (!after.empty()) return "key '" + common::Printable(key->name) + after;
    for (const RegistryValue& value : key->values) {
      if (!after.empty()) return "value '" + common::Printable(value.name) + after;
      if (value.text) after = "' follows the text of '" + common::Printable(value.name) + "'";
    }
  }
  return "";
}

}  // namespace

std::vector<const RegistryKey*> RegistryText::ListOrder() const {
  std::vector<const RegistryKey*> order;
  for (const RegistryKey& key : keys) order.push_back(&key);
  if (!order.empty()) std::reverse(order.begin() + 1, order.end());
  return order;
}

const RegistryKey* RegistryText::FindByName(std::string_view name) const {
  for (const RegistryKey* key : ListOrder()) {
    if (key->name == name) return key;
  }
  return nullptr;
}

const RegistryKey* RegistryText::FindById(uint32_t id) const {
  for (const RegistryKey* key : ListOrder()) {
    if (key->id == id) return key;
  }
  return nullptr;
}

const char* RegistryCodeText(uint32_t code) {
  switch (code) {
#define REGISTRY_CODE(name, value, message) \
  case value:                               \
    return message;
    OSCL_ERROR_TABLE(REGISTRY_CODE)
#undef REGISTRY_CODE
    default:
      return "unknown error";
  }
}

RegistryText ParseRegistry(std::string_view content) { return RegistryParser(content).Parse(); }

bool IsRewritten(std::string_view content) {
  return content.substr(0, content.find('\n')) == std::string(kKeyMark) + " ";
}

RegistryText ParseRewritten(std::string_view content) {
  std::string stripped;
  std::string_view rest = content;
  for (std::size_t number = 1; !rest.empty(); ++number) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    std::string_view line = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (!line.empty() && line.back() == ' ') line.remove_suffix(1);
    if (std::all_of(line.begin(), line.end(), IsSpace)) {
      throw RegistryFault(number, OSCL_ERROR_REG_ITEM_UNKNOWN,
                          "an empty line: texts cannot be empty in this file; write one, or take "
                          "the value out");
    }
    stripped.append(line).append("\n");
  }
  RegistryText registry = ParseRegistry(stripped);
  if (!registry.keys.empty()) std::reverse(registry.keys.begin() + 1, registry.keys.end());
  registry.doubt = DoubtAbout(content, registry);
  return registry;
}

std::string FormatRegistry(const RegistryText& registry, RegistryStyle style) {
  std::vector<const RegistryKey*> order = registry.ListOrder();
  if (style == RegistryStyle::kLoadable && !order.empty()) {
    std::reverse(order.begin() + 1, order.end());
  }
  const std::string end = style == RegistryStyle::kRewritten ? " \n" : "\n";
  std::string content;
  for (const RegistryKey* key : order) {
    content += kKeyMark + end + "\t" + common::Hex(key->id, 8) + end + "\t" + key->name + end;
    for (const RegistryValue& value : key->values) {
      content += "\t\t" + std::string(kValueMark) + end;
      if (!value.name.empty()) content += "\t\t\t" + value.name + end;
      content += "\t\t\t" + std::to_string(static_cast<int32_t>(value.type)) + end;
      if (value.text) content += "\t\t\t" + *value.text + end;
      if (value.number) {
        content += "\t\t\t" + std::to_string(static_cast<int32_t>(*value.number)) + end;
      }
    }
  }
  return content;
}

}  // namespace kaloctl
