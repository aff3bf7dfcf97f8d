#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>

#include "api/kalo_dll.h"
#include "common/colours.h"
#include "common/command_line.h"
#include "common/format.h"
#include "common/hex.h"
#include "common/input.h"
#include "common/text.h"
#include "tools/call/driver_session.h"
#include "tools/call/log_capture.h"
#include "tools/call/message.h"
#include "tools/call/status_text.h"
#include "tools/cli/commands.h"
#include "tools/cli/json.h"

namespace kaloctl {
namespace {

constexpr std::uint32_t kLargestReply = 1 << 20;

struct SendOptions {
  std::string file;  // "-" for standard input; empty if FILE is not given
  std::optional<std::string> hex;
  std::optional<std::uint32_t> command;
  bool bodyOnly = false;
  bool showLog = false;
  bool json = false;
  std::string outputFile;
};

// Returns the request: the bytes of FILE or of the hexadecimal text. With --body, puts a header
// before them. With --command, writes the command into the header. Without input, returns only a
// header. Throws common::InputError.
std::vector<std::uint8_t> ReadRequest(const SendOptions& options) {
  if (options.bodyOnly && !options.command) throw common::UsageError("--body requires --command");
  if (options.hex && !options.file.empty()) {
    throw common::UsageError("--data: cannot be combined with FILE; remove one of them");
  }
  if (options.file.empty() && !options.hex) {
    if (options.command) return MakeMessage(*options.command, {});
    throw common::UsageError("no request given; add FILE, --data or --command");
  }
  const std::string content = options.hex ? *options.hex : common::ReadInput(options.file);
  const std::string name = options.hex ? "--data" : common::InputName(options.file);
  std::vector<std::uint8_t> bytes(content.begin(), content.end());
  try {
    if (options.hex || common::LooksLikeText(content)) bytes = common::ParseHex(content);
  } catch (const common::InputError& error) {
    throw common::InputError(name + ", " + error.what());
  }
  if (options.bodyOnly) return MakeMessage(*options.command, bytes);
  if (bytes.empty()) throw common::InputError(name + ": the request is empty");
  if (!options.command) return bytes;
  if (bytes.size() < kHeaderSize) {
    throw common::InputError(
        common::Format("{}: {} cannot hold a header for --command; use --body to add one", name,
                       common::Counted(bytes.size(), "byte")));
  }
  SetCommand(bytes, *options.command);
  return bytes;
}

// The result of a request.
struct Outcome {
  const char* call = "StartIoEx3";  // the name of the last call
  std::uint32_t status = KALO_DLL_STATUS_FAILURE;
  std::vector<std::uint8_t> reply;
  std::vector<std::uint8_t> privateData;
  std::vector<std::string> log;

  bool Failed() const { return status != KALO_DLL_STATUS_SUCCESS; }
  Failure Described() const { return DescribeFailure(status, log); }
  bool HasHeader() const { return reply.size() >= kHeaderSize; }
  std::int32_t FirmwareStatus() const { return transport::HeaderOf(reply.data()).status; }
};

void PrintOutcomeJson(const Outcome& outcome, bool showLog) {
  Json json = {
      {"error", outcome.Failed() ? FailureJson(outcome.call, outcome.Described()) : Json()},
      {"reply", BytesJson(outcome.reply)},
      {"firmwareStatus", outcome.HasHeader() ? Json(outcome.FirmwareStatus()) : Json()},
      {"privateData", BytesJson(outcome.privateData)}};
  if (showLog) json["log"] = outcome.log;
  PrintJson(json);
}

void PrintOutcome(const Outcome& outcome, bool showLog) {
  const common::Colours colours = common::ColoursFor(stdout);
  if (!outcome.Failed()) {
    std::cout << colours.bold << "reply" << colours.reset << (outcome.reply.empty() ? " " : ", ")
              << ReplyText(outcome.reply) << '\n';
    PrintMessage(std::cout, outcome.reply);
    if (!outcome.privateData.empty()) {
      std::cout << colours.bold << "private data" << colours.reset << ", "
                << common::Counted(outcome.privateData.size(), "byte") << '\n'
                << common::HexDump(outcome.privateData, "  ");
    }
  }
  if (showLog) std::cout << "log\n  " << common::Joined(outcome.log, "\n  ") << '\n';
  if (!outcome.Failed()) return;
  const common::Colours errorColours = common::ColoursFor(stderr);
  std::cerr << "kaloctl: " << outcome.call << " failed: " << errorColours.bad
            << StatusText(outcome.status) << errorColours.reset << '\n';
  PrintFailure(std::cerr, errorColours, "  ", outcome.Described());
}

Outcome Exchange(const SendOptions& options, const std::vector<std::uint8_t>& request) {
  const std::uint32_t command =
      request.size() < kHeaderSize ? 0 : transport::HeaderOf(request.data()).commandId;
  const Client client = ClientOfCommand(command);
  LogCapture* const log = LogCapture::Start(true);
  Outcome outcome;
  DriverSession session(client);
  outcome.status = session.status();
  if (outcome.Failed()) {
    outcome.call = session.InitName();
  } else {
    if (!options.json) {
      const common::Colours colours = common::ColoursFor(stdout);
      std::cout << colours.bold << "request" << colours.reset << " to " << ClientName(client)
                << ", " << common::Counted(request.size(), "byte") << '\n';
      PrintMessage(std::cout, request);
      std::cout << std::flush;
    }
    ReplyBuffer reply(std::clamp<std::uint32_t>(session.Properties().maxMessageLength, kHeaderSize,
                                                kLargestReply));
    outcome.status = session.Exchange(request, &reply, &outcome.privateData);
    if (!outcome.Failed()) outcome.reply = reply.Received();
  }
  outcome.log = log->Take();
  return outcome;
}

// Writes to the open file at `path`. Throws common::InputError, also if the file could not be
// opened.
void WriteReply(std::ofstream& file, const std::string& path,
                const std::vector<std::uint8_t>& reply) {
  file.write(reinterpret_cast<const char*>(reply.data()),
             static_cast<std::streamsize>(reply.size()));
  if (file.flush()) return;
  throw common::InputError(
      common::Format("cannot write the reply: {}: {}", common::Quoted(path), std::strerror(errno)));
}

int Send(const SendOptions& options) {
  const std::string& output = options.outputFile;
  std::error_code ignored;
  if (std::filesystem::equivalent(options.file, output, ignored)) {
    throw common::UsageError("--output is the same file as FILE; choose another");
  }
  if (output == "-") throw common::UsageError("--output: name a file, not '-'");
  const std::vector<std::uint8_t> request = ReadRequest(options);
  // Open the file first: if it is not writable, no command may be executed.
  std::ofstream file;
  if (!output.empty()) {
    file.open(output, std::ios::binary | std::ios::app);
    WriteReply(file, output, {});
  }
  const Outcome outcome = Exchange(options, request);
  options.json ? PrintOutcomeJson(outcome, options.showLog)
               : PrintOutcome(outcome, options.showLog);
  if (outcome.Failed()) return kFailed;
  if (file.is_open()) {
    std::filesystem::resize_file(output, 0, ignored);  // fails if it is a pipe or a device
    WriteReply(file, output, outcome.reply);
  }
  if (outcome.reply.empty()) return kFailed;
  return outcome.HasHeader() && outcome.FirmwareStatus() < 0 ? kRefused : kDone;
}

constexpr char kFooter[] =
    R"(FILE holds a message: a header of four little-endian 32-bit words, the second of which is the
command, and the body. kaloctl reads a file of printable characters as hex text, such as
'04 00 0a # comment', and sends any other file as it is. --command writes the command into the
header; without FILE and --data it sends only a header.

Commands 0x30000 to 0x3ffff go to the FENU client, all others to KALO. The library does not
report the length of a reply, so kaloctl shows the reply buffer up to the last changed byte.

Examples:
  kaloctl send --command 4
  kaloctl send --command 0x30001 --body --data '01 02 03 04'
  kaloctl send request.bin --output reply.bin

Exit status: 0 a reply, 3 a reply with a negative status, 1 the call failed or no reply came,
2 wrong usage or input.)";

}  // namespace

void DefineSend(common::Command* program) {
  const auto options = std::make_shared<SendOptions>();
  common::Command* command = program->AddCommand(
      "send", "Send one request and show the reply and its private data", kFooter);
  command->AddFile("FILE", &options->file, "Read the request from FILE (- for standard input)");
  const auto hex = std::make_shared<std::string>();
  command->AddText("--data", hex.get(), "Send this hex text", "HEX");
  command->AddFlag("--body", &options->bodyOnly,
                   "Put a header before the input; requires --command");
  command->AddNumber("--command", &options->command, "Send this command identifier");
  command->AddFile("--output", &options->outputFile,
                   "Write the raw reply to FILE, which is opened before the request is sent");
  command->AddFlag("--log", &options->showLog,
                   "Show the library's log lines, including trace lines");
  AddJsonFlag(command, &options->json);
  command->SetAction([=] {
    if (command->Has("--data")) options->hex = *hex;
    return Send(*options);
  });
}

}  // namespace kaloctl
