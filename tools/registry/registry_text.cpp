#include "tools/registry/registry_text.h"

#include <algorithm>

#include "common/format.h"
#include "common/text.h"
#include "oscl/last_error.h"
#include "oscl/registry_image.h"

namespace kaloctl {
namespace {

// Returns the keys that the library reads from `content`. Throws oscl::RegistryFailure.
std::vector<RegistryKey> ReadKeys(const std::string& content) {
  const oscl::RegistryImage image(content);
  std::vector<RegistryKey> keys;
  for (const oscl::RegistryKeyRecord& record : image.keys()) {
    RegistryKey& key = keys.emplace_back();
    key.id = record.keyId;
    key.name = record.name;
    for (std::uint32_t i = 0; i < record.valueCount; ++i) {
      const oscl::RegistryValueRecord& source = image.ValuesOf(record)[i];
      RegistryValue& value = key.values.emplace_back(
          RegistryValue{std::string(source.name), source.type, std::string(source.text)});
      if (oscl::IsRegistryNumber(value.type)) value.data = std::to_string(source.number);
      if (source.size == 0) value.data.reset();
    }
  }
  if (!keys.empty()) std::reverse(keys.begin() + 1, keys.end());
  return keys;
}

// Returns 0 if the library loads `content`, or else the library's error code.
std::uint32_t LoadCode(const std::string& content) {
  try {
    const oscl::RegistryImage image(content);
    return OSCL_ERROR_SUCCESS;
  } catch (const oscl::RegistryFailure& failure) {
    return failure.code();
  }
}

// Returns true if the library reads `content` to its end. The function appends lines that complete
// a truncated item and are invalid after it. The library reports an error only if it reads these
// lines.
bool IsReadToEnd(std::string content) {
  if (!content.empty() && content.back() != '\n') content += '\n';
  return LoadCode(content + "1\n1\n1\n1\n") != OSCL_ERROR_SUCCESS;
}

std::string StopMessage(std::uint32_t code, const std::string& line) {
  if (code == 0) return "the library ignores the file from here on, without an error";
  const std::size_t begin = std::min(line.find_first_not_of(" \t"), line.size());
  return common::Format("{}: expected {}", common::Quoted(line.substr(begin)),
                        code == OSCL_ERROR_REG_TYPE_UNKNOWN
                            ? "a type: 1 (string), 4 (dword) or 11 (qword)"
                            : "'[KEY]' or '[VALUE]'");
}

// Returns nullopt if the library reads all of `content`.
std::optional<RegistryStop> FindStop(const std::string& content) {
  const std::uint32_t code = LoadCode(content);
  const auto isRead = [code](const std::string& text) {
    return code == OSCL_ERROR_SUCCESS ? IsReadToEnd(text) : LoadCode(text) == OSCL_ERROR_SUCCESS;
  };
  if (isRead(content)) return std::nullopt;
  std::vector<std::size_t> ends;  // the end of each line
  for (std::size_t at = 0; at < content.size(); at = ends.back() + 1) {
    ends.push_back(std::min(content.find('\n', at), content.size()));
  }
  const auto found = std::partition_point(ends.begin(), ends.end(), [&](std::size_t end) {
    return isRead(content.substr(0, end + 1));
  });
  const std::size_t begin = found == ends.begin() ? 0 : found[-1] + 1;
  return RegistryStop{static_cast<std::size_t>(found - ends.begin()) + 1, code,
                      StopMessage(code, content.substr(begin, *found - begin))};
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
  return common::Format("{}, line {}: {}", common::Quoted(path), line, message);
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

RegistryText ParseRegistry(const std::string& content) {
  std::optional<RegistryStop> stop = FindStop(content);
  const bool loads = !stop || stop->code == OSCL_ERROR_SUCCESS;
  return {loads ? ReadKeys(content) : std::vector<RegistryKey>(), std::move(stop), false};
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
