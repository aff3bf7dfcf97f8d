#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>

#include "common/colours.h"
#include "common/command_line.h"
#include "common/input_error.h"
#include "common/number.h"
#include "common/text.h"
#include "oscl/last_error.h"
#include "oscl/registry.h"
#include "tools/cli/commands.h"
#include "tools/cli/json.h"
#include "tools/registry/registry_edit.h"
#include "tools/registry/registry_file.h"
#include "tools/registry/registry_view.h"

namespace kaloctl {
namespace {

struct RegistryOptions {
  std::string file = kRegistryPath;
  std::string key;
  std::string name;
  std::string data;
  std::optional<uint32_t> type;
  std::optional<uint32_t> id;
  bool json = false;
  bool raw = false;
  bool repair = false;
  bool force = false;
};

// A text, a number as the file has it, or null where the file ends before it.
Json DataJson(const RegistryValue& value) {
  if (value.text) return *value.text;
  return value.number ? Json(static_cast<int32_t>(*value.number)) : Json();
}

Json RegistryJson(const RegistryText& registry) {
  Json keys = Json::array();
  for (const RegistryKey& key : registry.keys) {
    Json values = Json::array();
    for (const RegistryValue& value : key.values) {
      values.push_back(
          {{"name", value.name}, {"type", TypeText(value.type)}, {"data", DataJson(value)}});
    }
    keys.push_back({{"name", key.name},
                    {"id", key.id},
                    {"reachable", Reaches(registry, key)},
                    {"values", values}});
  }
  Json json = {{"keys", keys}, {"endsEarlyAtLine", nullptr}};
  if (registry.endedEarly) json["endsEarlyAtLine"] = *registry.endedEarly;
  return json;
}

int List(const RegistryOptions& options) {
  const RegistryText registry = LoadRegistryFile(options.file);
  if (options.json) {
    PrintJson(std::cout, RegistryJson(registry));
  } else {
    PrintRegistry(std::cout, common::ColoursFor(stdout), registry);
  }
  if (registry.endedEarly) {
    std::cout << std::flush;
    std::cerr << "kaloctl: '" << options.file << "', line " << *registry.endedEarly
              << ": the library stops reading here, without an error\n";
  }
  return kDone;
}

RegistryValue* FindValue(RegistryKey& key, const std::string& name) {
  for (RegistryValue& value : key.values) {
    if (value.name == name) return &value;
  }
  return nullptr;
}

int Get(const RegistryOptions& options) {
  RegistryText registry = LoadRegistryFile(options.file);
  RegistryKey& key = registry.keys[FindRegistryKey(registry, options.key, options.file)];
  const RegistryValue* value = FindValue(key, options.name);
  if (value == nullptr) {
    throw RegistryError("key '" + options.key + "' has no value '" + options.name + "' (code " +
                        std::to_string(OSCL_ERROR_REG_VALUE_NOT_FOUND) + ", " +
                        RegistryCodeText(OSCL_ERROR_REG_VALUE_NOT_FOUND) + ")");
  }
  if (options.json) {
    PrintJson(std::cout, {{"type", TypeText(value->type)}, {"data", DataJson(*value)}});
  } else if (!options.raw) {
    std::cout << TypeText(value->type) << " " << DataText(*value) << '\n';
  } else if (value->type == REG_SZ) {
    std::cout << value->text.value_or("") << '\n';
  } else {
    std::cout << NumberText(*value) << '\n';
  }
  return kDone;
}

uint32_t NumberOf(const std::string& data) {
  const bool negative = !data.empty() && data[0] == '-';
  const auto number = common::ParseNumber(negative ? data.substr(1) : data,
                                          negative ? 0x80000000u : common::kMaxWord);
  if (!number) {
    throw common::InputError(common::Quoted(data) +
                             ": a number from -2147483648 to 4294967295 is expected, decimal or 0x "
                             "hexadecimal");
  }
  return static_cast<uint32_t>(negative ? 0 - *number : *number);
}

// Changes the value in the key that the library would change, or adds it there.
void Change(RegistryText& registry, const RegistryOptions& options) {
  RegistryKey& key = registry.keys[FindRegistryKey(registry, options.key, options.file)];
  RegistryValue* value = FindValue(key, options.name);
  if (value == nullptr) {
    if (!options.type) {
      throw common::InputError("value '" + options.name + "' is new in '" + options.key +
                               "': give it a type with --type string, dword or qword");
    }
    value = &key.values.emplace_back();
    value->name = options.name;
  }
  value->type = options.type.value_or(value->type);
  value->text.reset();
  value->number.reset();
  if (value->type == REG_SZ) {
    value->text = options.data;
  } else {
    value->number = NumberOf(options.data);
  }
}

// Throws common::InputError unless the library would read from `content` what `registry` holds.
void ProveLoadable(const RegistryText& registry, const std::string& content,
                   const RegistryOptions& options) {
  std::string readBack;
  try {
    readBack = FormatRegistry(ParseRegistry(content), RegistryStyle::kLoadable);
  } catch (const RegistryFault&) {
  }
  if (readBack == FormatRegistry(registry, RegistryStyle::kLoadable)) return;
  throw common::InputError(
      (options.name.empty() ? common::Quoted(options.key)
                            : common::Quoted(options.name) + " = " + common::Quoted(options.data)) +
      ": names and texts of 1 to 255 characters are expected, without line ends and "
      "without a blank in front; nothing was changed");
}

int Set(const RegistryOptions& options) {
  if (!options.repair && !options.force) {
    throw common::InputError(
        "nothing was changed: as the library writes it, " + common::Quoted(options.file) +
        R"( would not load again: each line would end in a blank, and every later call would fail
with code 13. Add --repair to write it without the blanks and with its keys in their order,
or --force to write it as the library does)");
  }
  RegistryText registry =
      options.repair ? LoadRegistryFileToEdit(options.file) : LoadRegistryFile(options.file);
  RequireUndoubted(registry, options.file);
  Change(registry, options);
  const std::string loadable = FormatRegistry(registry, RegistryStyle::kLoadable);
  ProveLoadable(registry, loadable, options);
  WriteRegistryFile(options.file, options.repair
                                      ? loadable
                                      : FormatRegistry(registry, RegistryStyle::kRewritten));
  if (options.force) {
    std::cerr << "kaloctl: '" << options.file << "' does not load any more until "
              << RegistryCommand("repair", options.file) << " is run\n";
  }
  return kDone;
}

// What the library would not load, or load in part.
int Check(const RegistryOptions& options) {
  std::vector<std::string> problems;
  std::string counted;
  try {
    const RegistryText registry = LoadRegistryFile(options.file);
    counted = CountText(registry);
    if (registry.endedEarly) {
      problems.push_back("'" + options.file + "', line " + std::to_string(*registry.endedEarly) +
                         ": the library stops reading here, without an error");
    }
    for (const RegistryKey& key : registry.keys) {
      if (Reaches(registry, key)) continue;
      problems.push_back("key " + common::Quoted(key.name) + " is hidden by one of the same " +
                         (registry.FindByName(key.name) != &key ? "name" : "id"));
    }
  } catch (const RegistryError& error) {
    problems.emplace_back(error.what());
  }
  if (options.json) {
    PrintJson(std::cout, {{"good", problems.empty()}, {"problems", problems}});
  } else if (problems.empty()) {
    std::cout << "'" << options.file << "' loads: " << counted << "\n";
  } else {
    for (const std::string& problem : problems) std::cerr << "kaloctl: " << problem << '\n';
  }
  return problems.empty() ? kDone : kFailed;
}

// Writes what the library would load; it has no way of its own to add or to delete.
int WriteEdited(const RegistryText& registry, const RegistryOptions& options) {
  RequireUndoubted(registry, options.file);
  if (registry.endedEarly) {
    throw common::InputError("'" + options.file + "', line " +
                             std::to_string(*registry.endedEarly) +
                             ": the library stops reading here, and what follows would be lost; "
                             "nothing was changed");
  }
  const std::string content = FormatRegistry(registry, RegistryStyle::kLoadable);
  ProveLoadable(registry, content, options);
  WriteRegistryFile(options.file, content);
  return kDone;
}

int AddKey(const RegistryOptions& options) {
  RegistryText registry = LoadRegistryFileToEdit(options.file);
  AddRegistryKey(registry, options.key, options.id);
  return WriteEdited(registry, options);
}

int Delete(const RegistryOptions& options) {
  RegistryText registry = LoadRegistryFileToEdit(options.file);
  const std::size_t at = FindRegistryKey(registry, options.key, options.file);
  if (options.name.empty()) {
    registry.keys.erase(registry.keys.begin() + static_cast<std::ptrdiff_t>(at));
  } else {
    DeleteRegistryValue(registry.keys[at], options.name);
  }
  return WriteEdited(registry, options);
}

void MendLineEnds(const RegistryOptions& options) {
  const std::string content = ReadRegistryFile(options.file);
  if (!HasCarriageReturns(content)) return;
  WriteRegistryFile(options.file, WithoutCarriageReturns(content));
  std::cout << "'" << options.file << "': its lines end in LF now, no longer in CR LF\n";
}

int Repair(const RegistryOptions& options) {
  MendLineEnds(options);
  const std::string content = ReadRegistryFile(options.file);
  const RegistryText registry = LoadRegistryFileToEdit(options.file);
  if (!IsRewritten(content)) {
    std::cout << "'" << options.file << "' loads as it is: " << CountText(registry)
              << "; nothing was changed\n";
    return kDone;
  }
  PrintRegistry(std::cout, common::ColoursFor(stdout), registry);
  std::cout << std::flush;
  if (!options.force) RequireUndoubted(registry, options.file);
  WriteRegistryFile(options.file, FormatRegistry(registry, RegistryStyle::kLoadable));
  std::cout << "'" << options.file << "' loads again: " << CountText(registry) << "\n";
  return kDone;
}

constexpr char kFooter[] =
    R"(KEY is the full path of a key, such as 'HKEY_LOCAL_MACHINE\Software\Video', NAME a value in
it. The file is read as the library reads it. Types are string, dword and qword (whose data
the library keeps in 32 bits). A file that does not load is reported with line and code.

When the library sets a value it rewrites the file so that it does not load again. 'set'
therefore asks for --repair (the file stays loadable) or --force (what the library does), and
'repair' undoes what the library did to a file, the order of its keys included, and mends lines that
end in CR LF. It shows the keys that the file will hold. A text with line ends can have brought in
some of them: where a text is followed by anything, 'repair' asks for --force, and changes nothing
without it. 'add' and 'delete' leave the file loadable. 'set' adds a value that is not there when it
is told the type.

Examples:
  kaloctl registry get 'HKEY_LOCAL_MACHINE\Software\Video' Level
  kaloctl registry add 'HKEY_LOCAL_MACHINE\Software\Video' --file r.txt
  kaloctl registry set 'HKEY_LOCAL_MACHINE\Software\Video' Level 3 --type dword --repair --file r.txt
  kaloctl registry delete 'HKEY_LOCAL_MACHINE\Software\Video' Level --file r.txt
)";

void AddKeyArgument(common::Command* command, RegistryOptions* options) {
  command->AddText("KEY", &options->key, "", "Full path of the key").Require();
}

void AddValueArguments(common::Command* command, RegistryOptions* options) {
  AddKeyArgument(command, options);
  command->AddText("NAME", &options->name, "", "Name of the value").Require();
}

}  // namespace

void DefineRegistry(common::Command* program) {
  const auto options = std::make_shared<RegistryOptions>();
  common::Command* registry =
      program->AddCommand("registry", "Show, change and repair the registry file");
  registry->SetFooter(kFooter);
  const auto add = [&](const char* name, const char* help, int (*action)(const RegistryOptions&)) {
    common::Command* command = registry->AddCommand(name, help);
    command->AddFile("--file", &options->file,
                     std::string("The registry file (default: ") + kRegistryPath + ")");
    command->SetAction([=] { return action(*options); });
    return command;
  };
  AddJsonFlag(add("list", "Show all keys and values as a tree", List), &options->json);
  AddJsonFlag(add("check", "Say whether the library loads the file, and all of it", Check),
              &options->json);
  common::Command* get = add("get", "Show a value with its type", Get);
  AddValueArguments(get, options.get());
  AddJsonFlag(get, &options->json)
      .Exclude(get->AddFlag("--raw", &options->raw, "Show the data only"));
  common::Command* addKey = add("add", "Add a key without values", AddKey);
  AddKeyArgument(addKey, options.get());
  addKey->AddNumber("--id", &options->id, "Its id (default: the first that is free)");
  common::Command* remove =
      add("delete", "Delete a key with its values, or one of its values", Delete);
  AddKeyArgument(remove, options.get());
  remove->AddText("NAME", &options->name, "", "Name of the value; without it, delete the key");
  common::Command* set = add("set", "Set a value", Set);
  AddValueArguments(set, options.get());
  set->AddText("DATA", &options->data, "", "A text, or a number that is decimal or 0x hexadecimal")
      .Require();
  set->AddChoice<uint32_t>("--type", &options->type,
                           {{"string", REG_SZ}, {"dword", REG_DWORD}, {"qword", REG_QWORD}},
                           "Type of the value (default: the one it has)");
  set->AddFlag("--repair", &options->repair, "Write so that the library loads it again")
      .Exclude(set->AddFlag("--force", &options->force,
                            "Write as the library does: it does not load again"));
  add("repair", "Make a file load again that the library has rewritten, or that has CR LF", Repair)
      ->AddFlag("--force", &options->force, "Also what a text may have brought in");
}

}  // namespace kaloctl
