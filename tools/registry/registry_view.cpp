#include "tools/registry/registry_view.h"

#include <memory>
#include <vector>

#include "common/number.h"
#include "common/text.h"
#include "oscl/registry.h"

namespace kaloctl {
namespace {

// A part of the keys' paths, with the keys whose path ends here.
struct Node {
  std::string name;
  std::vector<const RegistryKey*> keys;
  std::vector<std::unique_ptr<Node>> children;

  Node& Child(std::string_view part) {
    for (const auto& child : children) {
      if (child->name == part) return *child;
    }
    children.push_back(std::make_unique<Node>());
    children.back()->name = part;
    return *children.back();
  }
};

void Insert(Node& root, const RegistryKey& key) {
  Node* node = &root;
  std::string_view path = key.name;
  for (;;) {
    const std::size_t end = path.find('\\');
    node = &node->Child(path.substr(0, end));
    if (end == std::string_view::npos) break;
    path.remove_prefix(end + 1);
  }
  node->keys.push_back(&key);
}

std::string Remark(const RegistryKey& key, const RegistryText& registry) {
  if (registry.FindByName(key.name) != &key) {
    return "  hidden by another key of that name";
  }
  const RegistryKey* sameId = registry.FindById(key.id);
  return sameId->name == key.name
             ? ""
             : "  hidden: '" + common::Printable(sameId->name) + "' has the same id";
}

void PrintNode(std::ostream& out, const common::Colours& colours, const RegistryText& registry,
               const Node& node, const std::string& indent) {
  out << indent << colours.bold << common::Printable(node.name) << colours.reset;
  if (node.keys.empty()) out << '\n';
  for (std::size_t i = 0; i < node.keys.size(); ++i) {
    const RegistryKey& key = *node.keys[i];
    if (i != 0) out << indent << colours.bold << common::Printable(node.name) << colours.reset;
    out << "  [" << common::Hex(key.id, 8) << "]" << colours.bad << Remark(key, registry)
        << colours.reset << '\n';
    for (const RegistryValue& value : key.values) {
      out << indent << "  " << common::Printable(value.name) << " = " << DataText(value) << "  "
          << colours.dim << TypeText(value.type) << colours.reset << '\n';
    }
  }
  for (const auto& child : node.children) {
    PrintNode(out, colours, registry, *child, indent + "  ");
  }
}

}  // namespace

std::string TypeText(uint32_t type) {
  switch (type) {
    case REG_SZ:
      return "string";
    case REG_DWORD:
      return "dword";
    case REG_QWORD:
      return "qword";
    default:
      return "type " + std::to_string(type);
  }
}

std::string NumberText(const RegistryValue& value) {
  return value.number ? std::to_string(static_cast<int32_t>(*value.number)) : "";
}

std::string DataText(const RegistryValue& value) {
  if (value.text) return "\"" + common::Printable(*value.text) + "\"";
  return value.number ? NumberText(value) + " (" + common::Hex(*value.number) + ")" : "(no data)";
}

bool Reaches(const RegistryText& registry, const RegistryKey& key) {
  return registry.FindByName(key.name) == &key && registry.FindById(key.id)->name == key.name;
}

std::string CountText(const RegistryText& registry) {
  return std::to_string(registry.keys.size()) + (registry.keys.size() == 1 ? " key" : " keys");
}

void PrintRegistry(std::ostream& out, const common::Colours& colours,
                   const RegistryText& registry) {
  Node root;
  for (const RegistryKey& key : registry.keys) Insert(root, key);
  for (const auto& child : root.children) PrintNode(out, colours, registry, *child, "");
}

}  // namespace kaloctl
