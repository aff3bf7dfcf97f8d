#include "tools/registry/registry_text.h"

#include <algorithm>
#include <cstring>

#include "common/format.h"
#include "common/number.h"
#include "common/text.h"
#include "oscl/last_error.h"
#include "oscl/registry_image.h"

namespace kaloctl {
namespace {

// Returns the data line of a value, which follows the lines of its name and type in the image.
std::string DataLineOf(const oscl::RegistryValueRecord& value) {
  constexpr char kSpace[] = " \t\n\v\f\r";
  const char* line = value.name.data() + value.name.size();
  line += std::strspn(line, kSpace);  // to the type
  line += std::strcspn(line, "\n");
  line += std::strspn(line, kSpace);
  return {line, std::strcspn(line, "\n")};
}

// Adds the keys that the library reads from `content`. Throws oscl::RegistryFailure.
void ReadKeys(const std::string& content, RegistryText* registry) {
  const oscl::RegistryImage image(content);
  std::vector<RegistryKey>& keys = registry->keys;
  for (const oscl::RegistryKeyRecord& record : image.keys()) {
    RegistryKey& key = keys.emplace_back();
    key.id = record.keyId;
    key.name = record.name;
    for (std::uint32_t i = 0; i < record.valueCount; ++i) {
      const oscl::RegistryValueRecord& source = image.ValuesOf(record)[i];
      RegistryValue& value = key.values.emplace_back(
          RegistryValue{std::string(source.name), source.type, std::string(source.text)});
      if (source.size == 0) value.data.reset();
      if (source.size == 0 || !oscl::IsRegistryNumber(value.type)) continue;
      value.data = std::to_string(source.number);
      const std::string line = DataLineOf(source);
      if (NumberText(line) == value.data) continue;
      registry->misread.push_back(common::Format(
          "key {}, value {}: the library reads {} as {}; write a decimal number of 32 bits",
          common::Quoted(key.name), common::Quoted(value.name), common::Quoted(line), *value.data));
    }
  }
  if (!keys.empty()) std::reverse(keys.begin() + 1, keys.end());
}

// Returns 0 if the library loads `content`, followed by the lines `more`, or else the library's
// error code.
std::uint32_t LoadCode(std::string content, const char* more = "") {
  if (!content.empty() && content.back() != '\n') content += '\n';
  try {
    const oscl::RegistryImage image(content + more);
    return OSCL_ERROR_SUCCESS;
  } catch (const oscl::RegistryFailure& failure) {
    return failure.code();
  }
}

// Returns true if the library reads `content` to its end. The function appends lines that complete
// a truncated item and are invalid after it. The library reports an error only if it reads these
// lines.
bool IsReadToEnd(const std::string& content) {
  return LoadCode(content) == OSCL_ERROR_SUCCESS &&
         LoadCode(content, "1\n1\n1\n1\n") != OSCL_ERROR_SUCCESS;
}

// Returns true if the library reads `content` to its end and the last item is complete. Only there
// the library expects another item.
bool IsComplete(const std::string& content) {
  return LoadCode(content) == OSCL_ERROR_SUCCESS &&
         LoadCode(content, "?\n") == OSCL_ERROR_REG_ITEM_UNKNOWN;
}

// Returns what is wrong with the line at which the library stops, and the remedy.
std::string StopMessage(std::uint32_t code, const std::string& line, bool isFirst) {
  const char* expected = isFirst ? "'[KEY]'" : "a hexadecimal id";
  if (code == OSCL_ERROR_REG_ITEM_UNKNOWN) expected = "'[KEY]' or '[VALUE]'";
  if (code == OSCL_ERROR_REG_TYPE_UNKNOWN) expected = "a type: 1 (string), 4 (dword) or 11 (qword)";
  const char* remedy = "";
  if (code == OSCL_ERROR_SUCCESS) remedy = "; the library ignores the file from here on";
  if (line.find('\r') != std::string::npos) remedy = "; run \"sed -i 's/\\r$//' FILE\"";
  if (isFirst && IsRewritten(line + '\n')) {
    remedy = "; the library has rewritten the file; run 'kaloctl registry repair --file FILE'";
  }
  const std::size_t begin = std::min(line.find_first_not_of(" \t"), line.size());
  return common::Format("{}: expected {}{}", common::Quoted(line.substr(begin)), expected, remedy);
}

// Returns nullopt if the library reads all of `content`.
std::optional<RegistryStop> FindStop(const std::string& content) {
  if (IsComplete(content)) return std::nullopt;
  const std::uint32_t code = LoadCode(content);
  std::vector<std::size_t> ends;  // the end of each line
  for (std::size_t at = 0; at < content.size(); at = ends.back() + 1) {
    ends.push_back(std::min(content.find('\n', at), content.size()));
  }
  const auto found = std::partition_point(ends.begin(), ends.end(), [&](std::size_t end) {
    return IsReadToEnd(content.substr(0, end + 1));
  });
  const std::size_t begin = found == ends.begin() ? 0 : found[-1] + 1;
  return RegistryStop{static_cast<std::size_t>(found - ends.begin()) + 1, code,
                      found == ends.end()
                          ? "the file ends within a key or value; add the missing lines"
                          : StopMessage(code, content.substr(begin, *found - begin), begin == 0)};
}

std::string WithoutTrailingBlanks(std::string text) {
  for (std::size_t at = 0; (at = text.find(" \n", at)) != std::string::npos;) text.erase(at, 1);
  return text;
}

bool HoldsText(const RegistryKey& key) {
  return std::any_of(key.values.begin(), key.values.end(),
                     [](const RegistryValue& value) { return value.type == REG_SZ; });
}

}  // namespace

std::string RegistryStop::Text(const std::string& path) const {
  return common::Format("{}, line {}: {}", common::Quoted(path), line, message) +
         (code == OSCL_ERROR_SUCCESS ? "" : common::Format(" (code {})", code));
}

RegistryValue* RegistryKey::Find(std::string_view valueName) {
  const auto found = std::find_if(values.begin(), values.end(),
                                  [&](const auto& value) { return value.name == valueName; });
  return found == values.end() ? nullptr : &*found;
}

const RegistryKey* RegistryText::Find(const std::function<bool(const RegistryKey&)>& wanted) const {
  if (!keys.empty() && wanted(keys.front())) return &keys.front();
  const auto found = std::find_if(keys.rbegin(), keys.rend(), wanted);
  return found == keys.rend() ? nullptr : &*found;
}

const RegistryKey* RegistryText::FindByName(std::string_view name) const {
  return Find([name](const RegistryKey& key) { return key.name == name; });
}

const RegistryKey* RegistryText::FindById(std::uint32_t id) const {
  return Find([id](const RegistryKey& key) { return key.id == id; });
}

bool RegistryText::Reaches(const RegistryKey& key) const {
  return FindByName(key.name) == &key && FindById(key.id)->name == key.name;
}

std::optional<std::string> NumberText(std::string_view text) {
  const bool negative = text.substr(0, 1) == "-";
  const auto number =
      common::ParseNumber(text.substr(negative ? 1 : 0), negative ? 0x80000000u : common::kMaxWord);
  if (!number) return std::nullopt;
  return std::to_string(static_cast<std::int32_t>(negative ? 0 - *number : *number));
}

RegistryText ParseRegistry(const std::string& content) {
  RegistryText registry;
  registry.stop = FindStop(content);
  if (!registry.stop || registry.stop->code == OSCL_ERROR_SUCCESS) ReadKeys(content, &registry);
  return registry;
}

std::string FormatRegistry(const RegistryText& registry) {
  std::string content;
  for (const RegistryKey& key : registry.keys) {
    content += common::Format("[KEY]\n\t{:#010x}\n\t{}\n", key.id, key.name);
    for (const RegistryValue& value : key.values) {
      content += "\t\t[VALUE]\n";
      if (!value.name.empty()) content += "\t\t\t" + value.name + '\n';
      content += common::Format("\t\t\t{}\n", value.type);
      if (value.data) content += "\t\t\t" + *value.data + '\n';
    }
  }
  return content;
}

bool IsRewritten(std::string_view content) { return content.substr(0, 7) == "[KEY] \n"; }

RegistryText RepairRegistry(const std::string& content) {
  RegistryText registry = ParseRegistry(WithoutTrailingBlanks(content));
  if (registry.keys.empty()) return registry;
  std::reverse(registry.keys.begin() + 1, registry.keys.end());
  // If the library would write a different file, the repair has misread this one.
  const std::string written = FormatRegistry(registry);
  registry.doubtful = std::any_of(registry.keys.begin(), registry.keys.end(), HoldsText) ||
                      LoadCode(written) != OSCL_ERROR_SUCCESS ||
                      oscl::RegistryImage(written).Rendered() != content;
  return registry;
}

}  // namespace kaloctl
