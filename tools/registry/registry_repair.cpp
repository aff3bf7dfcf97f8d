#include "tools/registry/registry_repair.h"

#include <algorithm>

#include "oscl/registry_image.h"

namespace kaloctl {
namespace {

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
  registry.doubtful = HoldsMoreAfterText(registry) ||
                      oscl::RegistryImage(FormatRegistry(registry)).Rendered() != text;
  return registry;
}

}  // namespace kaloctl
