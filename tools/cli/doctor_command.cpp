#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <sstream>

#include "common/colours.h"
#include "common/command_line.h"
#include "common/format.h"
#include "common/text.h"
#include "log/log_file.h"
#include "tools/call/driver_session.h"
#include "tools/call/log_capture.h"
#include "tools/call/message.h"
#include "tools/call/status_text.h"
#include "tools/cli/commands.h"
#include "tools/cli/json.h"
#include "tools/registry/registry_file.h"
#include "transport/client_session.h"
#include "transport/cp_drem_session.h"
#include "transport/zuli_device.h"

namespace kaloctl {
namespace {

using common::Format;
using common::Quoted;

constexpr char kDevice[] = "/dev/zuli";

struct DoctorOptions {
  std::optional<std::uint32_t> command;  // of the round trip
  std::vector<std::string> skip;         // names of checks
  bool json = false;
};

struct Finding {
  enum Result { kOk, kWarning, kFailed, kSkipped, kNotMade } result;
  std::string text;
  std::string remedy;
};

const Finding kNoDevice = {Finding::kNotMade, "the device does not open", ""};

// Makes the checks, each of which may use what an earlier one has found.
class Examination {
 public:
  explicit Examination(std::uint32_t command) : command_(command) {
    const int descriptor = open(kDevice, O_RDWR);
    error_ = descriptor == -1 ? errno : 0;
    if (descriptor != -1) close(descriptor);
  }

  Finding Device() const {
    if (error_ == 0) return {Finding::kOk, Format("{} opens for reading and writing", kDevice), ""};
    const char* remedy = "look for the engine's driver in the kernel's log";
    if (error_ == ENOENT || error_ == ENOTDIR || error_ == ENXIO) {
      remedy = "load the engine's kernel driver, or use 'zulisim run'";
    } else if (error_ == EACCES || error_ == EPERM) {
      remedy = "use a user and a security domain that may read and write it";
    }
    return {Finding::kFailed, Format("{}: {}", kDevice, std::strerror(error_)), remedy};
  }

  Finding Connects(Client client) {
    if (error_ != 0) return kNoDevice;
    const DriverSession session(client);
    return session.status() == KALO_DLL_STATUS_SUCCESS ? Connected(session.Properties())
                                                       : Failure(session.status());
  }

  // No entry point reaches this client, so that this connects to it directly. A carried libc++ lets
  // its exceptions be caught only by the dots.
  Finding ConnectsSab() {
    if (error_ != 0) return kNoDevice;
    ClientSession session;
    try {
      session.ConnectClient(&ClientSession::SAB_CLIENT_GUID);
    } catch (...) {
      return {Finding::kWarning, CauseIn(log_.Take()),
              "check that the firmware has the client; drivers do not need it"};
    }
    return Connected(session.dremSessions.front()->connectRecord->out);
  }

  Finding RoundTrip() {
    if (error_ != 0) return kNoDevice;
    DriverSession session(ClientOfCommand(command_));
    if (session.status() != KALO_DLL_STATUS_SUCCESS) {
      return {Finding::kNotMade, "the client does not connect", ""};
    }
    const std::uint32_t maximum = session.Properties().maxMessageLength;
    ReplyBuffer reply(std::max<std::size_t>(maximum, kHeaderSize));
    std::vector<std::uint8_t> privateData;
    const std::uint32_t status = session.Exchange(MakeMessage(command_, {}), &reply, &privateData);
    if (status != KALO_DLL_STATUS_SUCCESS) {
      Finding failure = Failure(status);
      if (maximum < kHeaderSize) {
        failure.remedy = Format(
            "check the firmware's version: the client's maximum is {} bytes, less than a header",
            maximum);
      }
      return failure;
    }
    const std::vector<std::uint8_t> received = reply.Received();
    const bool whole = received.size() >= kHeaderSize;
    return {
        whole ? Finding::kOk : Finding::kFailed,
        Format("command {:#x}: reply {}", command_, ReplyText(received)),
        whole ? "" : Format("look at the log of 'kaloctl send --log --command {:#x}'", command_)};
  }

  Finding LogFile() const {
    std::stringstream stream;
    DetermineLogFilePath(stream);
    const std::string path = stream.str().c_str();
    const int descriptor = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT, 0666);
    if (descriptor == -1) {
      return {Finding::kWarning, Format("{}: {}", Quoted(path), std::strerror(errno)),
              "create its folder, writable for this user; without it the library logs nothing"};
    }
    close(descriptor);
    return {Finding::kOk, Quoted(path) + " can be written", ""};
  }

  Finding Registry() const {
    try {
      const std::size_t keys = LoadRegistryFile(kRegistryPath).keys.size();
      return {Finding::kOk, common::Counted(keys, "key") + " in " + kRegistryPath, ""};
    } catch (const std::exception& error) {
      return {Finding::kWarning, error.what(),
              "correct the file, or create an empty one; only the settings functions need it"};
    }
  }

 private:
  static Finding Connected(const ZuliConnectRecord::Properties& properties) {
    return {Finding::kOk,
            Format("version {}, maximum {} bytes", properties.protocolVersion,
                   properties.maxMessageLength),
            ""};
  }

  Finding Failure(std::uint32_t status) {
    const std::string_view text = LastErrorRecord().text;
    const std::string cause = CauseIn(log_.Take());
    return {Finding::kFailed, std::string(text) + (cause.empty() ? "" : " " + cause),
            std::string(AdviceFor(status, text))};
  }

  const std::uint32_t command_;
  int error_;
  LogCapture log_{LogCapture::Detail::kTrace};
};

struct Check {
  const char* name;
  Finding (*run)(Examination&);
};

constexpr Check kChecks[] = {
    {"device", [](Examination& examination) { return examination.Device(); }},
    {"kalo", [](Examination& examination) { return examination.Connects(Client::kKalo); }},
    {"fenu", [](Examination& examination) { return examination.Connects(Client::kFenu); }},
    {"round-trip", [](Examination& examination) { return examination.RoundTrip(); }},
    {"sab", [](Examination& examination) { return examination.ConnectsSab(); }},
    {"log", [](Examination& examination) { return examination.LogFile(); }},
    {"registry", [](Examination& examination) { return examination.Registry(); }},
};

std::vector<std::string> CheckNames() {
  std::vector<std::string> names;
  for (const Check& check : kChecks) names.emplace_back(check.name);
  return names;
}

bool Contains(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

void PrintFinding(const char* name, const char* word, const Finding& finding) {
  const common::Colours colours = common::ColoursFor(stdout);
  const char* const resultColours[] = {colours.good, colours.warning, colours.bad, colours.dim,
                                       colours.dim};
  std::cout << resultColours[finding.result] << Format("{:<10}", word) << colours.reset
            << Format("{:<12} {}\n", name, finding.text);
  if (!finding.remedy.empty()) std::cout << Format("{:10}remedy: {}\n", "", finding.remedy);
}

int Examine(const DoctorOptions& options) {
  constexpr const char* kWords[] = {"ok", "warning", "failed", "skipped", "not made"};
  for (const std::string& name : options.skip) {
    if (Contains(CheckNames(), name)) continue;
    throw common::UsageError(Format("--skip: unknown check {}; expected one of {}", Quoted(name),
                                    common::Joined(CheckNames())));
  }
  Examination examination(options.command.value_or(0));
  bool good = true;
  Json checks = Json::array();
  for (const Check& check : kChecks) {
    const Finding finding = Contains(options.skip, check.name) ? Finding{Finding::kSkipped, "", ""}
                                                               : check.run(examination);
    const char* const word = kWords[finding.result];
    checks.push_back({{"name", check.name},
                      {"result", word},
                      {"text", finding.text},
                      {"remedy", finding.remedy.empty() ? Json() : Json(finding.remedy)}});
    if (!options.json) PrintFinding(check.name, word, finding);
    good = good && finding.result != Finding::kFailed && finding.result != Finding::kNotMade;
  }
  if (options.json) {
    PrintJson(std::cout, {{"commandsCanBeSent", good}, {"checks", checks}});
  } else {
    std::cout << "Commands can" << (good ? "" : "not") << " be sent"
              << (good && !options.skip.empty() ? ", as far as was checked.\n" : ".\n");
  }
  return good ? kDone : kFailed;
}

}  // namespace

void DefineDoctor(common::Command* program) {
  const auto options = std::make_shared<DoctorOptions>();
  common::Command* command = program->AddCommand(
      "doctor", "Check whether commands can be sent, and name a remedy for each fault");
  command->AddNumber("--command", &options->command,
                     "Send this command in the round trip (default: 0)");
  command->AddList("--skip", &options->skip, "CHECK,...",
                   "Leave out these checks: " + common::Joined(CheckNames()));
  AddJsonFlag(command, &options->json);
  command->SetFooter(
      R"(Checks that the device opens, that the KALO and FENU clients connect, and that a header with
the command gets a reply, whatever its status. Commands do not need the rest, which gives
warnings at most: the SAB client, the log file and the registry file.

Examples:
  kaloctl doctor
  zulisim run --client kalo:max=8 kaloctl doctor

Exit status: 0 when commands can be sent, 1 when not, 2 for wrong usage.)");
  command->SetAction([=] { return Examine(*options); });
}

}  // namespace kaloctl
