#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <memory>
#include <sstream>

#include "common/command_line.h"
#include "common/input_error.h"
#include "common/number.h"
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
#include "transport/kalo_status.h"
#include "transport/zuli_device.h"

namespace kaloctl {
namespace {

struct DoctorOptions {
  // The command of the round trip.
  uint32_t command = 0;
  // Names of checks to leave out.
  std::vector<std::string> skip;
  bool json = false;
};

constexpr char kDevice[] = "/dev/zuli";

struct Finding {
  enum Kind { kOk, kWarning, kFailed, kSkipped, kNotMade } kind;
  std::string text;
  std::string remedy;
};

// What the checks share.
class Examination {
 public:
  explicit Examination(const DoctorOptions& options) : options_(options) {
    const int descriptor = open(kDevice, O_RDWR);
    openError_ = descriptor == -1 ? errno : 0;
    if (descriptor != -1) close(descriptor);
  }

  Finding Node() const {
    if (openError_ != ENOENT && openError_ != ENOTDIR && openError_ != ENXIO) {
      return {Finding::kOk, std::string(kDevice) + " is there", ""};
    }
    return {Finding::kFailed, std::string(kDevice) + ": " + std::strerror(openError_),
            "load the engine's kernel driver, or run under 'zulisim run --'"};
  }

  Finding Permissions() const {
    if (Node().kind != Finding::kOk) return {Finding::kNotMade, "there is no device", ""};
    if (openError_ == 0) {
      return {Finding::kOk, "it opens for reading and writing", ""};
    }
    const bool denied = openError_ == EACCES || openError_ == EPERM;
    return {Finding::kFailed, std::string(kDevice) + ": " + std::strerror(openError_),
            denied ? "run as a user and in a security domain that may read and write it"
                   : "look at the kernel's log for the engine's driver"};
  }

  Finding Connects(Client client) {
    if (openError_ != 0) return {Finding::kNotMade, "the device does not open", ""};
    log_.Take();
    const DriverSession session(client);
    if (session.status() != KALO_DLL_STATUS_SUCCESS) return Failure(session.status());
    return Connected(session.Properties());
  }

  // No entry point reaches this client, so that its connection is made directly. A carried libc++
  // lets its exceptions be caught by this only.
  Finding ConnectsSab() {
    if (openError_ != 0) return {Finding::kNotMade, "the device does not open", ""};
    log_.Take();
    ClientSession session;
    try {
      session.ConnectClient(&ClientSession::SAB_CLIENT_GUID);
    } catch (...) {
      return {Finding::kWarning, CauseIn(log_.Take()),
              "drivers do without it: look whether the firmware holds the client"};
    }
    return Connected(session.dremSessions.front()->connectRecord->out);
  }

  Finding RoundTrip() {
    if (openError_ != 0) return {Finding::kNotMade, "the device does not open", ""};
    log_.Take();
    DriverSession session(ClientOfCommand(options_.command));
    if (session.status() != KALO_DLL_STATUS_SUCCESS) {
      return {Finding::kNotMade, "the client does not connect", ""};
    }
    const uint32_t maximum = session.Properties().maxMessageLength;
    ReplyBuffer reply(std::max<std::size_t>(maximum, kHeaderSize));
    std::vector<uint8_t> privateData;
    const uint32_t status =
        session.Exchange(MakeMessage(options_.command, {}), &reply, &privateData);
    if (status != KALO_DLL_STATUS_SUCCESS) {
      Finding failure = Failure(status);
      if (maximum < kHeaderSize) {
        failure.remedy = "the client's maximum is " + std::to_string(maximum) +
                         " bytes, and the header alone has " + std::to_string(kHeaderSize) +
                         ": look at the version of its firmware";
      }
      return failure;
    }
    const std::vector<uint8_t> received = reply.Received();
    if (received.size() < kHeaderSize) {
      return {Finding::kFailed, "reply " + ReplyText(received),
              "look at what the client does: kaloctl send --log --command " +
                  common::Hex(options_.command)};
    }
    return {Finding::kOk,
            "command " + common::Hex(options_.command) + " was answered with status " +
                std::to_string(transport::HeaderOf(received.data()).status),
            ""};
  }

  Finding LogFile() const {
    std::stringstream stream;
    DetermineLogFilePath(stream);
    const std::string path = stream.str().c_str();
    std::FILE* file = std::fopen(path.c_str(), "a");
    if (file == nullptr) {
      return {
          Finding::kWarning, path + ": " + std::strerror(errno),
          "make its folder, writable for this user; the library works without, but logs nothing"};
    }
    std::fclose(file);
    return {Finding::kOk, path + " can be written", ""};
  }

  Finding Registry() const {
    try {
      const RegistryText registry = LoadRegistryFile(kRegistryPath);
      return {Finding::kOk, common::Counted(registry.keys.size(), "key") + " in " + kRegistryPath,
              ""};
    } catch (const std::exception& error) {
      const bool missing = access(kRegistryPath, F_OK) != 0;
      return {Finding::kWarning, error.what(),
              std::string(missing ? "create the file, which may be empty" : "correct the file") +
                  "; only the settings functions need it"};
    }
  }

 private:
  static Finding Connected(const ZuliConnectRecord::Properties& properties) {
    return {Finding::kOk,
            "version " + std::to_string(properties.protocolVersion) + ", maximum " +
                std::to_string(properties.maxMessageLength) + " bytes",
            ""};
  }

  Finding Failure(uint32_t status) {
    const std::string_view text = LastErrorRecord().text;
    const std::string cause = CauseIn(log_.Take());
    return {Finding::kFailed, std::string(text) + (cause.empty() ? "" : " " + cause),
            std::string(AdviceFor(status, text))};
  }

  const DoctorOptions& options_;
  int openError_;
  LogCapture log_{LogCapture::Detail::kTrace};
};

struct Check {
  const char* name;
  Finding (*run)(Examination&);
  bool isOptional = false;  // commands do without it
};

constexpr Check kChecks[] = {
    {"node", [](Examination& examination) { return examination.Node(); }},
    {"permissions", [](Examination& examination) { return examination.Permissions(); }},
    {"kalo", [](Examination& examination) { return examination.Connects(Client::kKalo); }},
    {"fenu", [](Examination& examination) { return examination.Connects(Client::kFenu); }},
    {"sab", [](Examination& examination) { return examination.ConnectsSab(); }, true},
    {"round-trip", [](Examination& examination) { return examination.RoundTrip(); }},
    {"log", [](Examination& examination) { return examination.LogFile(); }},
    {"registry", [](Examination& examination) { return examination.Registry(); }},
};

constexpr const char* kWords[] = {"ok", "warning", "failed", "skipped", "not made"};

void PrintFinding(std::ostream& out, const common::Colours& colours, const char* name,
                  const Finding& finding) {
  const char* const kindColours[] = {colours.good, colours.warning, colours.bad, colours.dim,
                                     colours.dim};
  out << kindColours[finding.kind] << std::left << std::setw(10) << kWords[finding.kind]
      << colours.reset << std::setw(13) << name << std::right << finding.text << '\n';
  if (!finding.remedy.empty()) out << std::string(10, ' ') << "remedy: " << finding.remedy << '\n';
}

// The names of all checks, in order.
std::vector<std::string> CheckNames() {
  std::vector<std::string> names;
  for (const Check& check : kChecks) names.emplace_back(check.name);
  return names;
}

// Runs the checks and prints a line for each, with a remedy below one that is not good. A check
// that needs one that failed is not made. True when none that commands depend on was in vain.
bool RunDoctor(std::ostream& out, const common::Colours& colours, const DoctorOptions& options) {
  Examination examination(options);
  bool good = true;
  Json checks = Json::array();
  for (const Check& check : kChecks) {
    const bool skipped =
        std::find(options.skip.begin(), options.skip.end(), check.name) != options.skip.end();
    const Finding finding = skipped ? Finding{Finding::kSkipped, "", ""} : check.run(examination);
    if (options.json) {
      checks.push_back({{"name", check.name},
                        {"result", kWords[finding.kind]},
                        {"text", finding.text},
                        {"remedy", finding.remedy.empty() ? Json() : Json(finding.remedy)}});
    } else {
      PrintFinding(out, colours, check.name, finding);
    }
    good = good && (finding.kind != Finding::kFailed &&
                    (finding.kind != Finding::kNotMade || check.isOptional));
  }
  if (options.json) {
    PrintJson(out, {{"commandsCanBeSent", good}, {"checks", checks}});
  } else {
    out << (good ? "Commands can be sent" : "Commands cannot be sent")
        << (good && !options.skip.empty() ? ", as far as was checked.\n" : ".\n");
  }
  return good;
}

int Examine(const DoctorOptions& options) {
  const std::vector<std::string> known = CheckNames();
  for (const std::string& name : options.skip) {
    if (std::find(known.begin(), known.end(), name) == known.end()) {
      throw common::InputError("--skip " + common::Quoted(name) + ": one of " +
                               common::Joined(known, "|") + " is expected");
    }
  }
  return RunDoctor(std::cout, common::ColoursFor(stdout), options) ? kDone : kFailed;
}

}  // namespace

void DefineDoctor(common::Command* program) {
  struct Arguments {
    DoctorOptions options;
    std::optional<uint32_t> command;
  };
  auto arguments = std::make_shared<Arguments>();
  common::Command* command = program->AddCommand(
      "doctor", "Check whether commands can be sent, with a remedy for each fault");
  command->AddNumber("--command", &arguments->command, "Command of the round trip (default: 0)");
  command->AddList("--skip", &arguments->options.skip, "CHECK,...",
                   "Leave out these checks: " + common::Joined(CheckNames()));
  AddJsonFlag(command, &arguments->options.json);
  command->SetFooter(
      R"(Checks that the device node is there and opens, that the KALO and FENU clients connect, and that
a bare header with the command is answered, whatever the answer's status: without these no command
can be sent. What commands do without is a warning at most: the SAB client, a log file that can be
written, a registry file that loads. A check that is skipped decides nothing.

Exit status: 0 when commands can be sent, 1 when not, 2 for wrong usage.
)");
  command->SetAction([=] {
    arguments->options.command = arguments->command.value_or(0);
    return Examine(arguments->options);
  });
}

}  // namespace kaloctl
