#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "api/kalo_dll.h"

namespace kaloctl {

// The arguments of a library call. Each entry point uses only some of them.
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

// Bits for the arguments that an entry point takes in a script.
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
  unsigned arguments;  // bits of Argument
  KALO_DLL_STATUS (*call)(const CallArguments& arguments);
};

// The message that a line of a script sends.
struct ScriptCommand {
  std::uint32_t commandId = 0;
  std::uint32_t length = 0;
  // nullopt means a null pointer.
  std::optional<std::uint32_t> replyLength;
  bool nullInput = false;
  std::string privateData;  // empty, "private" for a buffer, or the tag in the buffer
};

struct ScriptStep {
  std::size_t line = 0;
  std::string text;  // its words, without the comment
  const EntryPoint* entryPoint = nullptr;
  std::string handle;  // name, "null", or empty for calls without one
  bool nullParams = false;
  std::uint32_t apiVersion = 0;
  std::uint32_t option = 0;
  ScriptCommand command;
};

constexpr std::string_view kNullHandle = "null";

// Parses a whole script. If lines are wrong, throws a common::InputError that lists each of them
// with its wrong word and the words that are valid there. `name` is the name of the script in these
// messages.
std::vector<ScriptStep> ParseScript(std::string_view content, const std::string& name);

// Returns the part of --help that lists the calls and their arguments.
std::string ScriptHelp();

}  // namespace kaloctl
