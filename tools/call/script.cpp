#include "tools/call/script.h"

#include <cstring>
#include <iterator>
#include <set>
#include <sstream>

#include "api/kalo_dll.h"
#include "common/format.h"
#include "common/input_error.h"
#include "common/number.h"
#include "common/text.h"

namespace kaloctl {
namespace {

using common::Format;
using common::InputError;
using common::Quoted;

constexpr std::uint32_t kLongestMessage = 1u << 26;

using Call = CallArguments;

// All entry points. The parser, the help and the suggestions use this table.
constexpr EntryPoint kEntryPoints[] = {
    {"KaloStateInit", kStateInit, [](const Call& call) { return KaloStateInit(call.params); }},
    {"KaloInit3", kNewHandle, [](const Call& call) { return KaloInit3(call.handle); }},
    {"StartIoEx3", kHandle | kMessage | kPrivateData,
     [](const Call& call) {
       return StartIoEx3(*call.handle, call.input, call.inputLength, call.output, call.outputLength,
                         call.privateData, call.privateLength);
     }},
    {"StartIo3", kHandle | kMessage,
     [](const Call& call) {
       return StartIo3(*call.handle, call.input, call.inputLength, call.output, call.outputLength);
     }},
    {"KaloCleanup3", kHandle, [](const Call& call) { return KaloCleanup3(*call.handle); }},
    {"FenuInit3", kNewHandle, [](const Call& call) { return FenuInit3(call.handle); }},
    {"FenuCleanup3", kHandle, [](const Call& call) { return FenuCleanup3(*call.handle); }},
    {"KaloInit", kNone, [](const Call&) { return KaloInit(); }},
    {"StartIoEx", kMessage | kPrivateData,
     [](const Call& call) {
       return StartIoEx(call.input, call.inputLength, call.output, call.outputLength,
                        call.privateData, call.privateLength);
     }},
    {"StartIo", kMessage,
     [](const Call& call) {
       return StartIo(call.input, call.inputLength, call.output, call.outputLength);
     }},
    {"KaloCleanup", kNone, [](const Call&) { return KaloCleanup(); }},
    {"FenuInit", kNone, [](const Call&) { return FenuInit(); }},
    {"FenuCleanup", kNone, [](const Call&) { return FenuCleanup(); }},
    {"ProvisioningStartIo", kMessage,
     [](const Call& call) {
       return ProvisioningStartIo(call.input, call.inputLength, call.output, call.outputLength);
     }},
};

// Returns the syntax of a call.
std::string UsageOf(const EntryPoint& form) {
  std::string text = form.name;
  if (form.arguments & kNewHandle) text += " NAME";
  if (form.arguments & kHandle) text += " NAME|null";
  if (form.arguments & kStateInit) text += " VERSION OPTION, or null";
  if (form.arguments & kMessage) text += " COMMAND LENGTH [reply=N|null] [input=null]";
  if (form.arguments & kPrivateData) text += " [private|IOCTLHND|IOCTLFRE]";
  return text;
}

const EntryPoint& FindCall(const std::string& name) {
  std::vector<std::string> names;
  for (const EntryPoint& form : kEntryPoints) {
    if (form.name == name) return form;
    names.emplace_back(form.name);
  }
  const std::string hint = common::NearestHint(name, names);
  throw InputError("unknown call " + Quoted(name) +
                   (hint.empty() ? "; expected one of " + common::Joined(names) : hint));
}

// Parses one line of a script. The InputErrors that it throws lack the name of the script and the
// line number.
class LineParser {
 public:
  LineParser(const std::vector<std::string>& words, std::set<std::string>* opened,
             std::set<std::string>* closed)
      : opened_(*opened), closed_(*closed), words_(words), form_(&FindCall(words[0])) {
    step_.text = common::Joined(words, " ");
    step_.entryPoint = form_;
  }

  ScriptStep Parse() {
    if (form_->arguments & kNewHandle) ReadNewHandle();
    if (form_->arguments & kHandle) ReadHandle();
    if (form_->arguments & kStateInit) ReadStateInit();
    if (form_->arguments & kMessage) ReadMessage();
    if (next_ < words_.size()) Reject(words_[next_], "the end of the line");
    return step_;
  }

 private:
  [[noreturn]] void Reject(const std::string& word, const std::string& expected) const {
    throw InputError(Format("{}; expected {}; usage: {}",
                            word.empty() ? "the line is too short" : "unexpected " + Quoted(word),
                            expected, UsageOf(*form_)));
  }

  // Returns the next word, or an empty string at the end of the line.
  std::string Next() { return next_ < words_.size() ? words_[next_++] : ""; }

  void ReadNewHandle() {
    step_.handle = Next();
    if (step_.handle.empty() || step_.handle == kNullHandle) {
      Reject(step_.handle, "a name for the handle, other than null");
    }
    opened_.insert(step_.handle);
    closed_.erase(step_.handle);
  }

  void ReadHandle() {
    step_.handle = Next();
    if (step_.handle == kNullHandle) return;
    if (opened_.count(step_.handle) == 0) {
      Reject(step_.handle, "null, or a handle from KaloInit3 or FenuInit3 in an earlier line");
    }
    // Sending a message on a closed handle would use freed memory.
    const bool sends = (form_->arguments & kMessage) != 0;
    if (sends && closed_.count(step_.handle) != 0)
      Reject(step_.handle, "a handle that is not closed");
    if (!sends) closed_.insert(step_.handle);
  }

  void ReadStateInit() {
    const std::string version = Next();
    step_.nullParams = version == kNullHandle;
    if (step_.nullParams) return;
    step_.apiVersion = Number(version, "a version such as 0x30000 for 3.0, or null");
    step_.option = Number(Next(), "an option word such as 0 or 1");
  }

  void ReadMessage() {
    ScriptCommand& command = step_.command;
    command.commandId = Number(Next(), "a command identifier such as 4 or 0x30001");
    command.length = Length(Next(), "a request length");
    command.replyLength = command.length;
    while (next_ < words_.size()) ReadMessageOption(Next());
  }

  void ReadMessageOption(const std::string& word) {
    constexpr char kReply[] = "reply=";
    ScriptCommand& command = step_.command;
    const bool takesPrivate = (form_->arguments & kPrivateData) != 0;
    if (word == "input=null") {
      command.nullInput = true;
    } else if (word == "reply=null") {
      command.replyLength.reset();
    } else if (word.rfind(kReply, 0) == 0) {
      command.replyLength = Length(word.substr(std::strlen(kReply)), "a reply buffer length");
    } else if (takesPrivate && (word == "private" || word == "IOCTLHND" || word == "IOCTLFRE")) {
      command.privateData = word;
    } else {
      Reject(word, takesPrivate ? "reply=N, reply=null, input=null, private, IOCTLHND or IOCTLFRE"
                                : "reply=N, reply=null or input=null");
    }
  }

  std::uint32_t Number(const std::string& word, const std::string& expected,
                       std::uint32_t highest = common::kMaxWord) const {
    const auto number = common::ParseNumber(word, highest);
    if (!number) Reject(word, expected);
    return static_cast<std::uint32_t>(*number);
  }

  std::uint32_t Length(const std::string& word, const std::string& what) const {
    return Number(word, Format("{} from 0 to {}", what, kLongestMessage), kLongestMessage);
  }

  std::set<std::string>& opened_;
  std::set<std::string>& closed_;
  const std::vector<std::string>& words_;
  std::size_t next_ = 1;
  const EntryPoint* const form_;
  ScriptStep step_;
};

std::vector<std::string> WordsOf(const std::string& line) {
  std::istringstream stream(line.substr(0, line.find('#')));
  return {std::istream_iterator<std::string>(stream), {}};
}

}  // namespace

std::vector<ScriptStep> ParseScript(std::string_view content, const std::string& name) {
  std::vector<ScriptStep> steps;
  std::set<std::string> opened, closed;
  std::vector<std::string> errors;
  std::istringstream stream{std::string(content)};
  std::string text;
  for (std::size_t line = 1; std::getline(stream, text); ++line) {
    const std::vector<std::string> words = WordsOf(text);
    if (words.empty()) continue;
    try {
      steps.push_back(LineParser(words, &opened, &closed).Parse());
      steps.back().line = line;
    } catch (const InputError& error) {
      errors.push_back(Format("{}, line {}: {}", name, line, error.what()));
    }
  }
  if (!errors.empty()) throw InputError(common::Joined(errors, "\n"));
  return steps;
}

std::string ScriptHelp() {
  std::string help = "SCRIPT holds one call per line. '#' starts a comment.\n\n";
  for (const EntryPoint& form : kEntryPoints) help += "  " + UsageOf(form) + "\n";
  return help + R"(
NAME is a handle that KaloInit3 or FenuInit3 opens; null is the null pointer. Numbers are
decimal or 0x hexadecimal. A request is a header with COMMAND and a body that counts upwards,
LENGTH bytes in all. reply=N sets the size of the reply buffer (default: LENGTH), 'private'
passes a buffer of 16 bytes for private data, IOCTLHND and IOCTLFRE put that tag into it.
The script is checked before its first call.
)";
}

}  // namespace kaloctl
