#include "tools/registry/registry_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common/input.h"
#include "common/input_error.h"
#include "common/number.h"
#include "common/text.h"
#include "oscl/last_error.h"
#include "tools/registry/registry_edit.h"

namespace kaloctl {
namespace {

[[noreturn]] void Fail(const std::string& what, uint32_t code) {
  throw RegistryError(what + " (code " + std::to_string(code) + ", " + RegistryCodeText(code) +
                      ")");
}

[[noreturn]] void FailAt(const std::string& path, const RegistryFault& fault,
                         const std::string& advice) {
  Fail("'" + path + "', line " + std::to_string(fault.line()) + ": " + fault.what() + advice,
       fault.code());
}

}  // namespace

std::string RegistryCommand(const std::string& command, const std::string& path) {
  const bool hasBlank = path.find(' ') != std::string::npos;
  const std::string named = hasBlank ? "\"" + path + "\"" : path;
  return "'kaloctl registry " + command + (path == kRegistryPath ? "" : " --file " + named) + "'";
}

std::string ReadRegistryFile(const std::string& path) {
  try {
    return common::ReadInput(path);
  } catch (const common::InputTooLong& error) {
    Fail(error.what(), OSCL_ERROR_REG_FILE_UNREADABLE);
  } catch (const common::InputError&) {
    Fail("'" + path + "': " + std::strerror(errno), OSCL_ERROR_REG_FILE_UNREADABLE);
  }
}

RegistryText LoadRegistryFile(const std::string& path) {
  const std::string content = ReadRegistryFile(path);
  try {
    return ParseRegistry(content);
  } catch (const RegistryFault& fault) {
    FailAt(path, fault,
           IsRewritten(content) ? "; the library has rewritten the file: " +
                                      RegistryCommand("repair", path) + " makes it load again"
           : HasCarriageReturns(content)
               ? "; its lines end in CR LF: " + RegistryCommand("repair", path) + " mends them"
               : "");
  }
}

RegistryText LoadRegistryFileToEdit(const std::string& path) {
  const std::string content = ReadRegistryFile(path);
  try {
    return IsRewritten(content) ? ParseRewritten(content) : ParseRegistry(content);
  } catch (const RegistryFault& fault) {
    FailAt(path, fault, "");
  }
}

void WriteRegistryFile(const std::string& path, const std::string& content) {
  std::FILE* file = std::fopen(path.c_str(), "w");
  bool good = file != nullptr;
  if (good) {
    good = std::fwrite(content.data(), 1, content.size(), file) == content.size();
    good = std::fclose(file) == 0 && good;
  }
  if (!good) Fail("'" + path + "': " + std::strerror(errno), OSCL_ERROR_REG_FILE_UNWRITABLE);
}

std::size_t FindRegistryKey(const RegistryText& registry, const std::string& keyPath,
                            const std::string& file) {
  const RegistryKey* key = registry.FindByName(keyPath);
  if (key == nullptr) {
    Fail("key '" + keyPath + "' is not in the file: " + RegistryCommand("list", file) +
             " shows which are",
         OSCL_ERROR_REG_ID_NOT_FOUND);
  }
  const RegistryKey* found = registry.FindById(key->id);
  if (found->name != keyPath) {
    throw RegistryError(
        "key '" + keyPath + "' shares the id " + common::Hex(key->id, 8) + " with '" +
        common::Printable(found->name) +
        "', and the library reads that one instead: give the keys ids of their own");
  }
  return static_cast<std::size_t>(key - registry.keys.data());
}

}  // namespace kaloctl
