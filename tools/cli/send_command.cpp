#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>

#include "api/kalo_dll.h"
#include "common/colours.h"
#include "common/command_line.h"
#include "common/format.h"
#include "common/hex.h"
#include "common/text.h"
#include "tools/call/driver_session.h"
#include "tools/call/log_capture.h"
#include "tools/call/request_source.h"
#include "tools/call/status_text.h"
#include "tools/cli/commands.h"
#include "tools/cli/json.h"

namespace kaloctl {
namespace {

constexpr std::uint32_t kLargestReply = 1 << 20;

struct SendOptions {
  RequestSource source;
  std::string hexText;
  bool showLog = false;
  bool json = false;
  std::string outputFile;
};

// The file of --output, if there is one. It is opened before a command is sent, and keeps its
// content until there is a reply.
class ReplyFile {
 public:
  explicit ReplyFile(const std::string& path) : path_(path) {
    if (path_.empty()) return;
    file_.reset(std::fopen(path_.c_str(), "ab"));
    if (file_ == nullptr) Fail();
  }

  void Write(const std::vector<std::uint8_t>& reply) {
    if (file_ == nullptr) return;
    // Anything but a regular file has nothing to cut.
    if (ftruncate(fileno(file_.get()), 0) != 0 && errno != EINVAL) Fail();
    const bool written = std::fwrite(reply.data(), 1, reply.size(), file_.get()) == reply.size();
    if (!written || std::fflush(file_.get()) != 0) Fail();
  }

 private:
  struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  [[noreturn]] void Fail() const {
    throw common::InputError(common::Format("cannot write the reply: {}: {}", common::Quoted(path_),
                                            std::strerror(errno)));
  }

  std::string path_;
  std::unique_ptr<std::FILE, Close> file_;
};

// What came of a request.
struct Outcome {
  const char* call = "StartIoEx3";  // the last call, with its status
  std::uint32_t status = KALO_DLL_STATUS_FAILURE;
  std::vector<std::uint8_t> reply;
  std::vector<std::uint8_t> privateData;
  std::vector<std::string> log;

  bool Failed() const { return status != KALO_DLL_STATUS_SUCCESS; }
  bool HasHeader() const { return reply.size() >= kHeaderSize; }
  std::int32_t FirmwareStatus() const { return transport::HeaderOf(reply.data()).status; }
};

void PrintOutcomeJson(const Outcome& outcome, bool showLog) {
  Json json = {
      {"error", outcome.Failed() ? FailureJson(outcome.call, outcome.status, outcome.log) : Json()},
      {"reply", BytesJson(outcome.reply)},
      {"firmwareStatus", outcome.HasHeader() ? Json(outcome.FirmwareStatus()) : Json()},
      {"privateData", BytesJson(outcome.privateData)}};
  if (showLog) json["log"] = outcome.log;
  PrintJson(std::cout, json);
}

void PrintOutcome(const Outcome& outcome, bool showLog) {
  const common::Colours colours = common::ColoursFor(stdout);
  if (!outcome.Failed()) {
    std::cout << colours.bold << "reply" << colours.reset << (outcome.reply.empty() ? " " : ", ")
              << ReplyText(outcome.reply) << '\n';
    PrintMessage(std::cout, outcome.reply);
    if (!outcome.privateData.empty()) {
      std::cout << colours.bold << "private data" << colours.reset << ", "
                << outcome.privateData.size() << " bytes\n"
                << common::HexDump(outcome.privateData, "  ");
    }
  }
  if (showLog) std::cout << "log\n";
  for (const std::string& line : outcome.log) {
    if (showLog) std::cout << "  " << line << '\n';
  }
  std::cout << std::flush;
  if (!outcome.Failed()) return;
  const common::Colours errorColours = common::ColoursFor(stderr);
  std::cerr << "kaloctl: " << outcome.call << " failed: " << errorColours.bad
            << StatusText(outcome.status) << errorColours.reset << '\n';
  PrintFailure(std::cerr, errorColours, "  ", outcome.status, true, outcome.log);
}

Outcome Exchange(const SendOptions& options, const std::vector<std::uint8_t>& request) {
  const std::uint32_t command =
      request.size() < kHeaderSize ? 0 : transport::HeaderOf(request.data()).commandId;
  const Client client = ClientOfCommand(command);
  LogCapture log(LogCapture::Detail::kTrace);
  Outcome outcome;
  {
    DriverSession session(client);
    outcome.status = session.status();
    if (outcome.Failed()) {
      outcome.call = session.InitName();
    } else {
      if (!options.json) {
        const common::Colours colours = common::ColoursFor(stdout);
        std::cout << colours.bold << "request" << colours.reset << " to " << ClientName(client)
                  << ", " << request.size() << " bytes\n";
        PrintMessage(std::cout, request);
        std::cout << std::flush;
      }
      ReplyBuffer reply(std::clamp<std::uint32_t>(session.Properties().maxMessageLength,
                                                  kHeaderSize, kLargestReply));
      outcome.status = session.Exchange(request, &reply, &outcome.privateData);
      if (!outcome.Failed()) outcome.reply = reply.Received();
    }
    outcome.log = log.Take();
  }
  return outcome;
}

int Send(const SendOptions& options) {
  const std::vector<std::uint8_t> request = ReadRequest(options.source);
  ReplyFile output(options.outputFile);
  const Outcome outcome = Exchange(options, request);
  options.json ? PrintOutcomeJson(outcome, options.showLog)
               : PrintOutcome(outcome, options.showLog);
  if (outcome.Failed()) return kFailed;
  output.Write(outcome.reply);
  if (outcome.reply.empty()) return kFailed;
  return outcome.HasHeader() && outcome.FirmwareStatus() < 0 ? kRefused : kDone;
}

constexpr char kFooter[] =
    R"(FILE holds a message: a header of four little-endian 32-bit words, of which the second is the
command identifier, and the body. A file of printable characters is read as hex text: pairs of
digits such as '04 00 0a' or '0x04,0x00', and comments after '#'. Any other file is sent as it
is. --command N writes N into the header; alone, it sends a header without a body.

The command identifier selects the client: 0x30000 to 0x3ffff FENU, all others KALO. The
library does not report the length of a reply. kaloctl shows the reply buffer up to the last
byte that has changed.

Examples:
  kaloctl send --command 4
  kaloctl send --command 0x30001 --body --data '01 02 03 04'
  kaloctl send request.bin --output reply.bin

Exit status: 0 for a reply, 3 for a reply with a negative status, 1 when the call failed or
nothing was received, 2 for wrong usage or input.)";

}  // namespace

void DefineSend(common::Command* program) {
  const auto options = std::make_shared<SendOptions>();
  common::Command* command =
      program->AddCommand("send", "Send one request and show the reply and its private data");
  const common::Option file = command->AddFile("FILE", &options->source.file,
                                               "Read the request from FILE; - is standard input");
  command->AddText("--data", &options->hexText, "HEX", "Send this hex text").Exclude(file);
  command->AddFlag("--body", &options->source.bodyOnly,
                   "Put a header in front of the input; requires --command");
  command->AddNumber("--command", &options->source.command, "Send this command identifier");
  command->AddFile("--output", &options->outputFile, "Write the raw reply to FILE");
  command->AddFlag("--log", &options->showLog, "Show the library's log lines, also detailed ones");
  AddJsonFlag(command, &options->json);
  command->SetFooter(kFooter);
  command->SetAction([=] {
    if (command->Has("--data")) options->source.hex = options->hexText;
    return Send(*options);
  });
}

}  // namespace kaloctl
