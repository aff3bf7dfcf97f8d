#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kaloctl {

// The entry points, as a script names them.
enum class EntryPoint {
  kKaloStateInit,
  kKaloInit3,
  kStartIoEx3,
  kStartIo3,
  kProvisioningStartIo,
  kKaloCleanup3,
  kFenuInit3,
  kFenuCleanup3,
  kKaloInit,
  kStartIoEx,
  kStartIo,
  kKaloCleanup,
  kFenuInit,
  kFenuCleanup,
};

// What a command offers for private data: nothing, a buffer, or a tag that asks for a wrapper.
enum class PrivateData { kNone, kBuffer, kAllocTag, kFreeTag };

// The message that a line sends.
struct ScriptCommand {
  uint32_t commandId = 0;
  uint32_t length = 0;
  // nullopt stands for a null pointer.
  std::optional<uint32_t> replyLength;
  bool nullInput = false;
  PrivateData privateData = PrivateData::kNone;
};

struct ScriptStep {
  std::size_t line = 0;
  std::string text;  // as written, without comment
  EntryPoint entryPoint = EntryPoint::kKaloInit;
  std::string handle;  // name, "null", or empty for calls without one
  bool nullParams = false;
  uint32_t apiVersion = 0;
  uint32_t option = 0;
  ScriptCommand command;
};

constexpr std::string_view kNullHandle = "null";

// Reads a whole script. Throws common::InputError that names every wrong line, the word in it and
// what would be right; `name` stands for the script in it.
std::vector<ScriptStep> ParseScript(std::string_view content, const std::string& name);

// The calls and their arguments, for --help.
std::string ScriptHelp();

}  // namespace kaloctl
