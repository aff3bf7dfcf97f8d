#include "tools/registry/registry_edit.h"

#include <algorithm>

#include "common/input_error.h"
#include "common/number.h"
#include "common/text.h"

namespace kaloctl {

RegistryKey& AddRegistryKey(RegistryText& registry, const std::string& keyPath,
                            std::optional<std::uint32_t> id) {
  if (registry.FindByName(keyPath) != nullptr) {
    throw common::InputError("key " + common::Quoted(keyPath) + " is there already");
  }
  if (id) {
    const RegistryKey* const owner = registry.FindById(*id);
    if (owner != nullptr) {
      throw common::InputError("--id " + common::Hex(*id) + " is that of " +
                               common::Quoted(owner->name) + "; one that no key has is expected");
    }
  }
  std::uint32_t free = 1;
  while (!id && registry.FindById(free) != nullptr) ++free;
  RegistryKey& key = registry.keys.emplace_back();
  key.id = id.value_or(free);
  key.name = keyPath;
  return key;
}

void DeleteRegistryValue(RegistryKey& key, const std::string& name) {
  const auto found = std::find_if(key.values.begin(), key.values.end(),
                                  [&name](const auto& value) { return value.name == name; });
  if (found == key.values.end()) {
    throw common::InputError("key " + common::Quoted(key.name) + " has no value " +
                             common::Quoted(name));
  }
  key.values.erase(found);
}

// The first line is a mark, of which it can be no part.
bool HasCarriageReturns(std::string_view content) {
  const std::size_t end = content.find('\n');
  return end != std::string_view::npos && end > 0 && content[end - 1] == '\r';
}

std::string WithoutCarriageReturns(std::string_view content) {
  std::string text;
  for (std::size_t i = 0; i < content.size(); ++i) {
    const bool ends = i + 1 == content.size() || content[i + 1] == '\n';
    if (content[i] != '\r' || !ends) text += content[i];
  }
  return text;
}

}  // namespace kaloctl
