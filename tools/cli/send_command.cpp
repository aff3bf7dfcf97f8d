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
#include "common/hex.h"
#include "common/input_error.h"
#include "common/number.h"
#include "tools/call/driver_session.h"
#include "tools/call/log_capture.h"
#include "tools/call/request_source.h"
#include "tools/call/status_text.h"
#include "tools/cli/commands.h"
#include "tools/cli/json.h"

namespace kaloctl {
namespace {

constexpr uint32_t kLargestReply = 1 << 26;
constexpr uint32_t kLargestDefaultReply = 1 << 20;

struct SendOptions {
  RequestSource source;
  std::string hexText;
  bool hex = false;
  bool binary = false;
  std::optional<Client> client;
  Generation generation = Generation::kVersion3;
  std::optional<uint32_t> apiVersion;
  std::optional<uint32_t> replySize;
  bool noPrivateData = false;
  bool showLog = false;
  bool json = false;
  std::string outputFile;
};

Client ChooseClient(const SendOptions& options, const std::vector<uint8_t>& request) {
  if (request.size() < kHeaderSize) return options.client.value_or(Client::kKalo);
  const uint32_t command = transport::HeaderOf(request.data()).commandId;
  const Client serving = ClientOfCommand(command);
  const Client chosen = options.client.value_or(serving);
  if (chosen != serving && options.generation == Generation::kEarlier) {
    throw common::InputError(std::string("--client ") + ClientName(chosen) +
                             ": the earlier entry points send command " + common::Hex(command) +
                             " to " + ClientName(serving) +
                             "; leave --client out, or use --generation 3");
  }
  return chosen;
}

// The file of --output, if there is one. It is opened before a command is sent, and keeps its
// content until there is a reply.
class ReplyFile {
 public:
  explicit ReplyFile(const std::string& path) : path_(path) {
    if (path_.empty()) return;
    file_.reset(std::fopen(path_.c_str(), "ab"));
    if (file_ == nullptr) Fail();
  }

  void Write(const std::vector<uint8_t>& reply) {
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
    throw common::InputError("--output '" + path_ + "': " + std::strerror(errno) +
                             ": the name of a file that can be written is expected");
  }

  std::string path_;
  std::unique_ptr<std::FILE, Close> file_;
};

void PrintLog(const std::vector<std::string>& lines) {
  std::cout << "log\n";
  for (const std::string& line : lines) std::cout << "  " << line << '\n';
}

class SendCommand {
 public:
  explicit SendCommand(const SendOptions& options) : options_(options) {}

  int Run() {
    const std::vector<uint8_t> request = ReadRequest(options_.source);
    if (options_.replySize.value_or(0) > kLargestReply) {
      throw common::InputError("--reply-size " + std::to_string(*options_.replySize) + ": 0 to " +
                               std::to_string(kLargestReply) + " bytes are expected");
    }
    const Client client = ChooseClient(options_, request);
    if (options_.apiVersion) {
      KALO_STATE_INIT_PARAMS params = {*options_.apiVersion, 0};
      KaloStateInit(&params);
    }
    DriverSession session(client, options_.generation);
    if (session.status() != KALO_DLL_STATUS_SUCCESS) {
      return Fail(session.InitName(), session.status());
    }
    return Exchange(session, client, request);
  }

 private:
  int Exchange(DriverSession& session, Client client, const std::vector<uint8_t>& request) {
    ReplyBuffer reply(options_.replySize.value_or(std::clamp<uint32_t>(
        session.Properties().maxMessageLength, kHeaderSize, kLargestDefaultReply)));
    if (!options_.json) PrintRequest(client, request);

    std::vector<uint8_t> privateData;
    const uint32_t status =
        session.Exchange(request, reply, options_.noPrivateData ? nullptr : &privateData);
    if (status != KALO_DLL_STATUS_SUCCESS) return Fail(session.CommandName(), status);

    const std::vector<uint8_t> received = reply.Received();
    if (options_.json) {
      PrintResult(nullptr, received, privateData, log_.Take());
    } else {
      PrintReply(received, privateData);
    }
    output_.Write(received);
    if (received.empty()) return kFailed;
    const bool whole = received.size() >= kHeaderSize;
    return whole && transport::HeaderOf(received.data()).status < 0 ? kRefused : kDone;
  }

  void PrintRequest(Client client, const std::vector<uint8_t>& request) const {
    std::cout << colours_.bold << "request" << colours_.reset << " to " << ClientName(client)
              << ", " << request.size() << " bytes\n";
    PrintMessage(std::cout, request);
    std::cout << std::flush;
  }

  void PrintReply(const std::vector<uint8_t>& received, const std::vector<uint8_t>& privateData) {
    std::cout << colours_.bold << "reply" << colours_.reset << (received.empty() ? " " : ", ")
              << ReplyText(received) << '\n';
    PrintMessage(std::cout, received);
    if (!privateData.empty()) {
      std::cout << colours_.bold << "private data" << colours_.reset << ", " << privateData.size()
                << " bytes\n";
      std::cout << common::HexDump(privateData, "  ");
    }
    if (options_.showLog) PrintLog(log_.Take());
  }

  // The one shape of all outcomes.
  void PrintResult(const Json& error, const std::vector<uint8_t>& reply,
                   const std::vector<uint8_t>& privateData,
                   const std::vector<std::string>& log) const {
    Json json = {{"error", error},
                 {"reply", BytesJson(reply)},
                 {"firmwareStatus", nullptr},
                 {"privateData", BytesJson(privateData)}};
    if (reply.size() >= kHeaderSize) {
      json["firmwareStatus"] = transport::HeaderOf(reply.data()).status;
    }
    if (options_.showLog) json["log"] = log;
    PrintJson(std::cout, json);
  }

  int Fail(const char* call, uint32_t status) {
    const common::Colours colours = common::ColoursFor(stderr);
    const std::vector<std::string> lines = log_.Take();
    if (options_.json) {
      PrintResult(FailureJson(call, status, lines), {}, {}, lines);
      return kFailed;
    }
    if (options_.showLog) PrintLog(lines);
    std::cout << std::flush;
    std::cerr << "kaloctl: " << call << " failed: " << colours.bad << StatusText(status)
              << colours.reset << '\n';
    PrintFailure(std::cerr, colours, "  ", status, true, lines);
    return kFailed;
  }

  const SendOptions& options_;
  ReplyFile output_{options_.outputFile};
  common::Colours colours_ = common::ColoursFor(stdout);
  LogCapture log_{LogCapture::Detail::kTrace};
};

constexpr char kFooter[] =
    R"(FILE holds a whole message: a header of four little-endian 32-bit words (the second is the
command identifier) and the body. It is raw bytes, or text with pairs of hexadecimal digits
('04 00 0a', '04000a', '0x04,0x00', '#' starts a comment). A file of printable characters only
is taken for hex text, any other for raw bytes, unless --hex or --binary says otherwise.

--command N replaces the identifier in the header. With --body the input is a body alone and
gets a header of zeros with N in front; without any input --command N sends a header alone.

The command identifier chooses the client (0x30000 to 0x3ffff FENU, all others KALO) unless
--client does. The library does not tell the length of a reply: what is shown ends at the last
byte that differs from a pattern put into the buffer before.

Examples:
  kaloctl send --command 4
  kaloctl send --command 0x30001 --body --data '01 02 03 04'
  kaloctl send --generation earlier request.bin --output reply.bin

Exit status: 0 for a reply, 3 for one whose status is negative, 1 when the call failed or nothing
was received, 2 for wrong usage or input.)";

}  // namespace

void DefineSend(common::Command* program) {
  auto options = std::make_shared<SendOptions>();
  common::Command* command =
      program->AddCommand("send", "Send one request and show the reply and its private data");
  const common::Option file =
      command->AddFile("FILE", &options->source.file, "The request; - reads standard input");
  command->AddText("--data", &options->hexText, "HEX", "The request as hex text").Exclude(file);
  const common::Option hex = command->AddFlag("--hex", &options->hex, "FILE is hex text");
  command->AddFlag("--binary", &options->binary, "FILE is raw bytes").Exclude(hex);
  command->AddFlag("--body", &options->source.bodyOnly,
                   "The input is a body: put a header in front (needs --command)");
  command->AddNumber("--command", &options->source.command,
                     "Command identifier, decimal or 0x hexadecimal");
  command->AddChoice<Client>("--client", &options->client,
                             {{"kalo", Client::kKalo}, {"fenu", Client::kFenu}},
                             "Firmware client (default: the one that serves the command)");
  command->AddChoice<Generation>(
      "--generation", &options->generation,
      {{"3", Generation::kVersion3}, {"earlier", Generation::kEarlier}},
      "Entry points: KaloInit3/StartIoEx3 or KaloInit/StartIoEx (default: 3)");
  command->AddChoice<uint32_t>("--api-version", &options->apiVersion,
                               {{"3.0", KALO_FIRMWARE_API_30},
                                {"3.2", KALO_FIRMWARE_API_32},
                                {"0x30000", KALO_FIRMWARE_API_30},
                                {"0x30002", KALO_FIRMWARE_API_32}},
                               "Firmware API to announce with KaloStateInit first (default: none)");
  command->AddNumber("--reply-size", &options->replySize,
                     "Size of the reply buffer (default: the client's maximum length)");
  command->AddFlag("--no-private-data", &options->noPrivateData,
                   "Offer no buffer for private data");
  command->AddFlag("--log", &options->showLog,
                   "Show the library's log lines, trace lines included");
  command->AddFile("--output", &options->outputFile, "Write the raw reply to this file");
  AddJsonFlag(command, &options->json);
  command->SetFooter(kFooter);
  command->SetAction([=] {
    if (command->Has("--data")) options->source.hex = options->hexText;
    if (options->hex) options->source.format = RequestFormat::kHex;
    if (options->binary) options->source.format = RequestFormat::kBinary;
    return SendCommand(*options).Run();
  });
}

}  // namespace kaloctl
