#include <cstdio>
#include <iostream>
#include <memory>
#include <stdexcept>

#include "common/colours.h"
#include "common/command_line.h"
#include "common/format.h"
#include "common/input.h"
#include "common/text.h"
#include "oscl/last_error.h"
#include "oscl/registry.h"
#include "tools/cli/commands.h"
#include "tools/cli/json.h"
#include "tools/registry/registry_file.h"

namespace kaloctl {
namespace {

using common::Format;
using common::Quoted;

struct RegistryOptions {
  std::string file = kRegistryPath;
  std::string key;
  std::string name;
  std::string data;
  std::string type;
  bool json = false;
  bool force = false;
};

constexpr char kHidden[] = ": another key with its name or id hides it";

const char* TypeText(std::uint32_t type) {
  return type == REG_SZ ? "string" : type == REG_DWORD ? "dword" : "qword";
}

// The data is a string, a signed number, or null if the file ends before it.
Json ValueJson(const RegistryValue& value) {
  Json data = value.data ? Json(*value.data) : Json();
  if (value.data && value.type != REG_SZ) data = std::stoi(*value.data);
  return {{"name", value.name}, {"type", TypeText(value.type)}, {"data", data}};
}

// "5 (0x5)  dword"
std::string ValueText(const RegistryValue& value) {
  std::string data = "(no data)";
  if (value.data && value.type == REG_SZ) data = "\"" + common::Printable(*value.data) + "\"";
  if (value.data && value.type != REG_SZ) {
    data = Format("{} ({:#x})", *value.data, static_cast<std::uint32_t>(std::stoi(*value.data)));
  }
  return data + "  " + TypeText(value.type);
}

// Prints the keys unless `asJson` is set, and returns them.
Json ShowKeys(const RegistryText& registry, bool asJson) {
  const common::Colours colours = common::ColoursFor(stdout);
  Json keys = Json::array();
  for (const RegistryKey& key : registry.keys) {
    Json values = Json::array();
    std::string text;
    for (const RegistryValue& value : key.values) {
      values.push_back(ValueJson(value));
      text += "  " + common::Printable(value.name) + " = " + ValueText(value) + "\n";
    }
    const bool reachable = registry.Reaches(key);
    keys.push_back(
        {{"name", key.name}, {"id", key.id}, {"reachable", reachable}, {"values", values}});
    if (asJson) continue;
    std::cout << colours.bold << common::Printable(key.name) << colours.reset
              << Format("  [{:#010x}]", key.id) << colours.bad << (reachable ? "" : kHidden)
              << colours.reset << '\n'
              << text;
  }
  return keys;
}

int List(const RegistryOptions& options) {
  const RegistryText registry = LoadRegistryFile(options.file);
  const Json keys = ShowKeys(registry, options.json);
  if (options.json) {
    PrintJson(
        {{"keys", keys}, {"endsEarlyAtLine", registry.stop ? Json(registry.stop->line) : Json()}});
  }
  if (registry.stop) std::cerr << "kaloctl: " << registry.stop->Text(options.file) << '\n';
  return kDone;
}

// Returns the key that the command line names. The library looks up the id of the name, then the
// name of that id, and then the key with that name. Throws std::runtime_error if the file lacks the
// key, and common::InputError if the library would find another key.
RegistryKey& FindKey(RegistryText& registry, const RegistryOptions& options) {
  const RegistryKey* key = registry.FindByName(options.key);
  if (key == nullptr) {
    throw std::runtime_error(Format("{} has no key {} (code {})", Quoted(options.file),
                                    Quoted(options.key), OSCL_ERROR_REG_ID_NOT_FOUND));
  }
  if (!registry.Reaches(*key)) {
    throw common::InputError("key " + Quoted(options.key) + kHidden +
                             "; give each key its own name and id");
  }
  return registry.keys[static_cast<std::size_t>(key - registry.keys.data())];
}

RegistryValue& FindValue(RegistryKey& key, const std::string& name) {
  if (RegistryValue* value = key.Find(name)) return *value;
  throw std::runtime_error(Format("key {} has no value {} (code {})", Quoted(key.name),
                                  Quoted(name), OSCL_ERROR_REG_VALUE_NOT_FOUND));
}

int Get(const RegistryOptions& options) {
  RegistryText registry = LoadRegistryFile(options.file);
  const RegistryValue& value = FindValue(FindKey(registry, options), options.name);
  options.json ? PrintJson(ValueJson(value)) : void(std::cout << ValueText(value) << '\n');
  return kDone;
}

// Loads a file. Throws if a change would lose lines or numbers of the file.
RegistryText LoadToEdit(const RegistryOptions& options) {
  RegistryText registry = LoadRegistryFile(options.file);
  if (!registry.misread.empty()) throw common::InputError(registry.misread.front());
  if (!registry.stop) return registry;
  throw common::InputError(registry.stop->Text(options.file) +
                           "; a change would lose lines of the file, so correct it first");
}

// Writes `registry`. Throws if the library would not read the same keys and values back.
int Write(const RegistryText& registry, const RegistryOptions& options) {
  const std::string content = FormatRegistry(registry);
  const RegistryText again = ParseRegistry(content);
  if (again.stop || FormatRegistry(again) != content) {
    throw common::InputError(
        Quoted(options.file) +
        " was not changed: the library would not read these texts back; names and "
        "texts need 1 to 255 characters, no line feed and no leading blank");
  }
  WriteRegistryFile(options.file, content);
  return kDone;
}

int AddKey(const RegistryOptions& options) {
  RegistryText registry = LoadToEdit(options);
  if (registry.FindByName(options.key) != nullptr) {
    throw common::InputError("key " + Quoted(options.key) + " already exists");
  }
  std::uint32_t id = 1;
  while (registry.FindById(id) != nullptr) ++id;
  registry.keys.push_back({id, options.key, {}});
  return Write(registry, options);
}

int Delete(const RegistryOptions& options) {
  RegistryText registry = LoadToEdit(options);
  RegistryKey& key = FindKey(registry, options);
  if (options.name.empty()) {
    registry.keys.erase(registry.keys.begin() + (&key - registry.keys.data()));
  } else {
    key.values.erase(key.values.begin() + (&FindValue(key, options.name) - key.values.data()));
  }
  return Write(registry, options);
}

int Set(const RegistryOptions& options) {
  RegistryText registry = LoadToEdit(options);
  RegistryKey& key = FindKey(registry, options);
  if (!options.type.empty() && key.Find(options.name) == nullptr)
    key.values.push_back({options.name, 0, {}});
  RegistryValue* value = key.Find(options.name);
  if (value == nullptr) {
    throw common::InputError(Format("key {} has no value {} yet; add --type to create it",
                                    Quoted(options.key), Quoted(options.name)));
  }
  for (const std::uint32_t type : {REG_SZ, REG_DWORD, REG_QWORD}) {
    if (options.type == TypeText(type)) value->type = type;
  }
  value->data = value->type == REG_SZ ? options.data : NumberText(options.data);
  if (value->data) return Write(registry, options);
  throw common::InputError("DATA: expected a number from -2147483648 to 4294967295, not " +
                           Quoted(options.data));
}

int Check(const RegistryOptions& options) {
  const RegistryText registry = ParseRegistry(common::ReadInput(options.file));
  std::vector<std::string> problems = registry.misread;
  if (registry.stop) problems.push_back(registry.stop->Text(options.file));
  for (const RegistryKey& key : registry.keys) {
    if (!registry.Reaches(key)) problems.push_back("key " + Quoted(key.name) + kHidden);
  }
  if (options.json) {
    PrintJson({{"good", problems.empty()}, {"problems", problems}});
  } else if (problems.empty()) {
    std::cout << Quoted(options.file) << " loads: " << common::Counted(registry.keys.size(), "key")
              << '\n';
  } else {
    for (const std::string& problem : problems) std::cerr << "kaloctl: " << problem << '\n';
  }
  return problems.empty() ? kDone : kFailed;
}

int Repair(const RegistryOptions& options) {
  const std::string content = common::ReadInput(options.file);
  if (!IsRewritten(content)) return Check(options);
  const RegistryText repaired = RepairRegistry(content);
  const auto& stop = repaired.stop;
  if (stop) throw std::runtime_error(stop->Text(options.file));
  ShowKeys(repaired, false);
  if (repaired.doubtful && !options.force) {
    throw common::InputError(
        Quoted(options.file) +
        " was not changed: some of these keys and values may be lines of a text; "
        "check the list above, and use --force if it is correct");
  }
  Write(repaired, options);
  return Check(options);
}

constexpr char kFooter[] =
    R"(KEY is the full path of a key, such as 'HKEY_LOCAL_MACHINE\Software\Video'. NAME is a value
in it. Numbers have 32 bits, also in a qword.

A change replaces the file as a whole or not at all. It keeps the file's owner, its permissions and
a symbolic link to it, but no comments, access lists or security labels. 'check' names the first
wrong line, wrong numbers and hidden keys. 'repair' fixes a file that the library has rewritten.

Examples:
  kaloctl registry get 'HKEY_LOCAL_MACHINE\Software\Video' Level
  kaloctl registry set 'HKEY_LOCAL_MACHINE\Software\Video' Level 3 --type dword --file r.txt

Exit status: 0 done, 1 a wrong file, or no such key or value, 2 wrong usage or input.)";

}  // namespace

void DefineRegistry(common::Command* program) {
  const auto options = std::make_shared<RegistryOptions>();
  common::Command* registry =
      program->AddCommand("registry", "Show, change and repair the registry file", kFooter);
  const auto add = [&](const char* name, const char* help, int (*action)(const RegistryOptions&)) {
    common::Command* command = registry->AddCommand(name, help, kFooter);
    command->AddFile("--file", &options->file,
                     Format("Use FILE as the registry (default: {})", kRegistryPath));
    command->SetAction([=] { return action(*options); });
    return command;
  };
  const auto addKey = [&](common::Command* command) {
    command->AddText("KEY", &options->key, "Full path of the key");
    command->Require({"KEY"});
  };
  AddJsonFlag(add("list", "Show all keys and values", List), &options->json);
  AddJsonFlag(add("check", "Check that the library loads the whole file", Check), &options->json);
  common::Command* get = add("get", "Show a value with its type", Get);
  addKey(get);
  get->AddText("NAME", &options->name, "Name of the value");
  get->Require({"NAME"});
  AddJsonFlag(get, &options->json);
  addKey(add("add", "Add a key without values", AddKey));
  common::Command* deletion =
      add("delete", "Delete a key with its values, or one of its values", Delete);
  addKey(deletion);
  deletion->AddText("NAME", &options->name, "Name of the value (default: delete the key)");
  common::Command* set = add("set", "Set a value, or add it with --type", Set);
  addKey(set);
  set->AddText("NAME", &options->name, "Name of the value");
  set->AddText("DATA", &options->data, "Text, or decimal or hexadecimal number");
  set->Require({"NAME", "DATA"});
  set->AddChoice("--type", {"string", "dword", "qword"}, &options->type,
                 "Give the value this type");
  add("repair", "Fix a file that the library has rewritten and no longer loads", Repair)
      ->AddFlag("--force", &options->force, "Keep keys and values that may be lines of a text");
}

}  // namespace kaloctl
