#include <cstdio>
#include <iostream>
#include <memory>

#include "common/colours.h"
#include "common/format.h"
#include "tools/call/driver_session.h"
#include "tools/call/log_capture.h"
#include "tools/call/status_text.h"
#include "tools/cli/commands.h"
#include "tools/cli/json.h"
#include "transport/kalo_status.h"

namespace kaloctl {
namespace {

using common::Format;

// Opens a session and returns what 'probe --json' shows of it.
Json ProbeClient(Client client, bool asJson, LogCapture* log) {
  const common::Colours colours = common::ColoursFor(stdout);
  const DriverSession session(client);
  const std::vector<std::string> lines = log->Take();
  const std::string name = Format("{}{}{}  ", colours.bold, ClientName(client), colours.reset);
  if (session.status() != KALO_DLL_STATUS_SUCCESS) {
    const Failure failure = DescribeFailure(session.status(), lines);
    if (!asJson) {
      std::cout << name << session.InitName() << " failed: " << colours.bad
                << StatusText(session.status()) << colours.reset << '\n';
      PrintFailure(std::cout, colours, "      ", failure);
    }
    return {{"name", ClientName(client)},
            {"connected", false},
            {"protocolVersion", nullptr},
            {"maxMessageLength", nullptr},
            {"error", FailureJson(session.InitName(), failure)}};
  }
  const ZuliConnectRecord::Properties properties = session.Properties();
  if (!asJson) {
    std::cout << name
              << Format("protocol version {}, maximum message length {} bytes\n",
                        properties.protocolVersion, properties.maxMessageLength);
  }
  return {{"name", ClientName(client)},
          {"connected", true},
          {"protocolVersion", properties.protocolVersion},
          {"maxMessageLength", properties.maxMessageLength},
          {"error", nullptr}};
}

int Probe(bool asJson) {
  LogCapture* const log = LogCapture::Start(true);
  const Json kalo = ProbeClient(Client::kKalo, asJson, log);
  const Json fenu = ProbeClient(Client::kFenu, asJson, log);
  if (asJson) PrintJson({{"clients", {kalo, fenu}}});
  return kalo["connected"] && fenu["connected"] ? kDone : kFailed;
}

}  // namespace

void DefineProbe(common::Command* program) {
  common::Command* command = program->AddCommand(
      "probe", "Open each firmware client and show its version and maximum length",
      R"(Opens KALO with KaloInit3 and FENU with FenuInit3, and closes both. Sends no commands.

Examples:
  kaloctl probe
  zulisim run --fault ioctl:2=ENOTTY kaloctl probe

Exit status: 0 done, 1 a client cannot be opened, 2 wrong usage.)");
  const auto json = std::make_shared<bool>(false);
  AddJsonFlag(command, json.get());
  command->SetAction([=] { return Probe(*json); });
}

}  // namespace kaloctl
