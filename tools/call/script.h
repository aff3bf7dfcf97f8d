#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "api/kalo_dll.h"

namespace kaloctl {

// The arguments of a call into the library; a call uses those that it has.
struct CallArguments {
  void** handle = nullptr;
  KALO_STATE_INIT_PARAMS* params = nullptr;
  std::uint8_t* input = nullptr;
  std::uint32_t inputLength = 0;
  std::uint8_t* output = nullptr;
  std::uint32_t outputLength = 0;
  std::uint8_t* privateData = nullptr;
  unsigned int* privateLength = nullptr;
};

// What follows the name of an entry point in a script.
enum Argument : unsigned {
  kNone = 0,
  kNewHandle = 1,
  kHandle = 2,
  kStateInit = 4,
  kMessage = 8,
  kPrivateData = 16,
};

// An entry point of the library.
struct EntryPoint {
  const char* name;
  unsigned arguments;  // of Argument
  bool recordsError;   // the cleanups report by their status only
  KALO_DLL_STATUS (*call)(const CallArguments& arguments);
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
  const EntryPoint* entryPoint = nullptr;
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
