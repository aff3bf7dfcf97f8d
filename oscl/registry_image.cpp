#include "oscl/registry_image.h"

#include <algorithm>
#include <utility>

namespace oscl {

namespace {

template <typename Records, typename Matches>
auto* FirstMatch(Records& records, Matches matches) {
  const auto found = std::find_if(records.begin(), records.end(), matches);
  return found != records.end() ? &*found : nullptr;
}

}  // namespace

RegistryValueRecord* RegistryKeyRecord::Find(std::string_view valueName) {
  return FirstMatch(values, [&](const auto& value) { return value.name == valueName; });
}

void RegistryImage::Add(RegistryKeyRecord&& key) {
  if (keys_.empty()) {
    keys_.push_front(std::move(key));
  } else {
    keys_.insert_after(keys_.begin(), std::move(key));
  }
}

RegistryKeyRecord* RegistryImage::FindById(uint32_t keyId) {
  return FirstMatch(keys_, [&](const auto& key) { return key.keyId == keyId; });
}

RegistryKeyRecord* RegistryImage::FindByName(std::string_view name) {
  return FirstMatch(keys_, [&](const auto& key) { return key.name == name; });
}

}  // namespace oscl
