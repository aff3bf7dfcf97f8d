#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
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
#include "transport/kalo_status.h"

namespace kaloctl {
namespace {

using common::Format;
using common::Quoted;

constexpr char kDevice[] = "/dev/zuli";

constexpr char kGood[] = "ok";
constexpr char kWarning[] = "warning";
constexpr char kBad[] = "failed";

struct Finding {
  std::string result;  // one of the words above
  std::string text;
  std::string remedy;
};

// Returns 0 if the file can be opened, or else the errno.
int OpenError(const std::string& path, int flags) {
  const int descriptor = open(path.c_str(), flags, 0666);
  if (descriptor == -1) return errno;
  close(descriptor);
  return 0;
}

Finding CheckDevice() {
  const int error = OpenError(kDevice, O_RDWR);
  if (error == 0) return {kGood, Format("{} opens for reading and writing", kDevice), ""};
  return {kBad, Format("{}: {}", kDevice, std::strerror(error)),
          error == EACCES || error == EPERM
              ? "use a user and a security domain that may read and write it"
              : "load the engine's kernel driver and read the kernel's log, or use 'zulisim run'"};
}

Finding CallFailed(std::uint32_t status, LogCapture* log) {
  const Failure failure = DescribeFailure(status, log->Take());
  return {kBad, std::string(failure.text) + (failure.cause.empty() ? "" : " ") + failure.cause,
          failure.advice};
}

Finding CheckConnection(Client client, LogCapture* log) {
  const DriverSession session(client);
  if (session.status() != KALO_DLL_STATUS_SUCCESS) return CallFailed(session.status(), log);
  const ZuliConnectRecord::Properties properties = session.Properties();
  const std::string text = Format("version {}, maximum {} bytes", properties.protocolVersion,
                                  properties.maxMessageLength);
  if (properties.maxMessageLength >= kHeaderSize) return {kGood, text, ""};
  return {kBad, text + ", less than a header", "check the version of the firmware"};
}

Finding CheckRoundTrip(LogCapture* log) {
  DriverSession session(Client::kKalo);
  if (session.status() != KALO_DLL_STATUS_SUCCESS) return CallFailed(session.status(), log);
  ReplyBuffer reply(std::max<std::size_t>(session.Properties().maxMessageLength, kHeaderSize));
  std::vector<std::uint8_t> privateData;
  const std::uint32_t status = session.Exchange(MakeMessage(0, {}), &reply, &privateData);
  if (status != KALO_DLL_STATUS_SUCCESS) return CallFailed(status, log);
  const std::string text = "command 0x0: reply " + ReplyText(reply.Received());
  if (reply.Received().size() >= kHeaderSize) return {kGood, text, ""};
  return {kBad, text, "read the log of 'kaloctl send --log --command 0'"};
}

Finding CheckLogFile() {
  std::stringstream stream;
  DetermineLogFilePath(stream);
  const std::string path = stream.str().c_str();  // ends at the first NUL
  const int error = OpenError(path, O_WRONLY | O_APPEND | O_CREAT);
  if (error == 0) return {kGood, Quoted(path) + " is writable", ""};
  return {kWarning, Format("{}: {}", Quoted(path), std::strerror(error)),
          "create its folder with write access for this user; until then nothing is logged"};
}

Finding CheckRegistry() {
  try {
    const std::size_t keys = LoadRegistryFile(kRegistryPath).keys.size();
    return {kGood, common::Counted(keys, "key") + " in " + kRegistryPath, ""};
  } catch (const std::exception& error) {
    return {kWarning, error.what(),
            "correct the file, or create an empty one; only the settings functions need it"};
  }
}

void PrintFinding(const char* name, const Finding& finding) {
  const common::Colours colours = common::ColoursFor(stdout);
  const char* const colour = finding.result == kGood  ? colours.good
                             : finding.result == kBad ? colours.bad
                                                      : colours.warning;
  std::cout << colour << Format("{:<9}", finding.result) << colours.reset
            << Format("{:<12}{}\n", name, finding.text);
  if (!finding.remedy.empty()) std::cout << Format("{:9}remedy: {}\n", "", finding.remedy);
}

int Examine(bool asJson) {
  LogCapture* const log = LogCapture::Start(true);
  const std::pair<const char*, std::function<Finding()>> checks[] = {
      {"device", CheckDevice},
      {"kalo", [log] { return CheckConnection(Client::kKalo, log); }},
      {"fenu", [log] { return CheckConnection(Client::kFenu, log); }},
      {"round-trip", [log] { return CheckRoundTrip(log); }},
      {"log", CheckLogFile},
      {"registry", CheckRegistry},
  };
  bool good = true;
  Json results = Json::array();
  for (const auto& [name, check] : checks) {
    Finding finding = check();
    if (finding.result == kBad && !results.empty() && results[0]["result"] == kBad) {
      finding.remedy = "correct the failed check 'device' first";
    }
    results.push_back({{"name", name},
                       {"result", finding.result},
                       {"text", finding.text},
                       {"remedy", finding.remedy.empty() ? Json() : Json(finding.remedy)}});
    if (!asJson) PrintFinding(name, finding);
    good = good && finding.result != kBad;
  }
  if (asJson) {
    PrintJson({{"commandsCanBeSent", good}, {"checks", results}});
  } else {
    std::cout << "Commands can" << (good ? "" : "not") << " be sent.\n";
  }
  return good ? kDone : kFailed;
}

}  // namespace

void DefineDoctor(common::Command* program) {
  common::Command* command = program->AddCommand(
      "doctor", "Check whether commands can be sent, and name a remedy for each fault",
      R"(Checks that the device opens, that the KALO and FENU clients connect, and that command 0 gets a
reply with any status. The log file and the registry file only give warnings: commands work
without them.

Examples:
  kaloctl doctor
  zulisim run --client kalo:max=8 kaloctl doctor

Exit status: 0 commands can be sent, 1 they cannot, 2 wrong usage.)");
  const auto json = std::make_shared<bool>(false);
  AddJsonFlag(command, json.get());
  command->SetAction([=] { return Examine(*json); });
}

}  // namespace kaloctl
