#include "tools/registry/registry_text.h"

#include <algorithm>

#include "common/format.h"
#include "common/text.h"
#include "oscl/last_error.h"
#include "oscl/registry_image.h"

namespace kaloctl {
namespace {

// The keys that the library reads from `content`. Throws oscl::RegistryFailure.
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

// 0, or why the library does not load `content`.
std::uint32_t LoadCode(const std::string& content) {
  try {
    const oscl::RegistryImage image(content);
    return OSCL_ERROR_SUCCESS;
  } catch (const oscl::RegistryFailure& failure) {
    return failure.code();
  }
}

// True if the library reads `content` to its end. Then it also reads the lines added here: they
// complete an item that the end has cut, and after that it refuses them.
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

// nullopt if the library reads all of `content`.
std::optional<RegistryStop> FindStop(const std::string& content) {
  const std::uint32_t code = LoadCode(content);
  const auto isRead = [code](const std::string& text) {
    return code == OSCL_ERROR_SUCCESS ? IsReadToEnd(text) : LoadCode(text) == OSCL_ERROR_SUCCESS;
  };
  if (isRead(content)) return std::nullopt;
  std::vector<std::size_t> ends;  // of the lines
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

template <typename Field, typename Wanted>
const RegistryKey* First(const RegistryText& registry, Field RegistryKey::*field, Wanted wanted) {
  for (const RegistryKey* key : registry.ListOrder()) {
    if (key->*field == wanted) return key;
  }
  return nullptr;
}

// The content with `unwanted` removed where it is the last character of a line.
std::string WithoutLineEnd(std::string_view content, char unwanted) {
  std::string text;
  for (std::size_t at = 0; at < content.size(); ++at) {
    const bool ends = at + 1 == content.size() || content[at + 1] == '\n';
    if (content[at] != unwanted || !ends) text += content[at];
  }
  return text;
}

bool IsRewritten(std::string_view content) { return content.substr(0, 7) == "[KEY] \n"; }

bool HoldsMoreAfterText(const RegistryText& registry) {
  std::vector<std::uint32_t> types;  // 0 for a key
  for (const RegistryKey* key : registry.ListOrder()) {
    types.push_back(0);
    for (const RegistryValue& value : key->values) types.push_back(value.type);
  }
  const auto text = std::find(types.begin(), types.end(), REG_SZ);
  return text != types.end() && text + 1 != types.end();
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

std::vector<const RegistryKey*> RegistryText::ListOrder() const {
  std::vector<const RegistryKey*> order;
  for (const RegistryKey& key : keys) order.push_back(&key);
  if (!order.empty()) std::reverse(order.begin() + 1, order.end());
  return order;
}

const RegistryKey* RegistryText::FindByName(std::string_view name) const {
  return First(*this, &RegistryKey::name, name);
}

const RegistryKey* RegistryText::FindById(std::uint32_t id) const {
  return First(*this, &RegistryKey::id, id);
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

std::string RepairableDamage(std::string_view content) {
  if (IsRewritten(content)) return "the library has rewritten the file";
  const std::string_view line = content.substr(0, content.find('\n'));
  const bool returns = line.size() < content.size() && !line.empty() && line.back() == '\r';
  return returns ? "its lines end in CR LF" : "";
}

RegistryText RepairRegistry(std::string_view content) {
  const std::string text = WithoutLineEnd(content, '\r');
  if (!IsRewritten(text)) return ParseRegistry(text);
  RegistryText registry = ParseRegistry(WithoutLineEnd(text, ' '));
  if (registry.keys.empty()) return registry;
  std::reverse(registry.keys.begin() + 1, registry.keys.end());
  // A line that the library would write otherwise shows that the file says something else.
  const std::string written = FormatRegistry(registry);
  registry.doubtful = HoldsMoreAfterText(registry) || LoadCode(written) != OSCL_ERROR_SUCCESS ||
                      oscl::RegistryImage(written).Rendered() != text;
  return registry;
}

}  // namespace kaloctl
