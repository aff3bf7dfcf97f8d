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

Json ClientJson(Client client, const DriverSession& session, const std::vector<std::string>& log) {
  Json json = {{"name", ClientName(client)},
               {"connected", false},
               {"protocolVersion", nullptr},
               {"maxMessageLength", nullptr},
               {"error", nullptr}};
  json["connected"] = session.status() == KALO_DLL_STATUS_SUCCESS;
  if (json["connected"]) {
    json["protocolVersion"] = session.Properties().protocolVersion;
    json["maxMessageLength"] = session.Properties().maxMessageLength;
  } else {
    json["error"] = FailureJson(session.InitName(), session.status(), log);
  }
  return json;
}

void PrintClient(Client client, const DriverSession& session, const std::vector<std::string>& log) {
  const common::Colours colours = common::ColoursFor(stdout);
  std::cout << colours.bold << ClientName(client) << colours.reset << "  ";
  if (session.status() == KALO_DLL_STATUS_SUCCESS) {
    const ZuliConnectRecord::Properties properties = session.Properties();
    std::cout << common::Format("protocol version {}, maximum message length {} bytes\n",
                                properties.protocolVersion, properties.maxMessageLength);
    return;
  }
  std::cout << session.InitName() << " failed: " << colours.bad << StatusText(session.status())
            << colours.reset << '\n';
  PrintFailure(std::cout, colours, "      ", session.status(), true, log);
}

int Probe(bool asJson) {
  LogCapture log(LogCapture::Detail::kTrace);
  int exitStatus = kDone;
  Json clients = Json::array();
  for (const Client client : {Client::kKalo, Client::kFenu}) {
    const DriverSession session(client);
    const std::vector<std::string> lines = log.Take();
    if (asJson) {
      clients.push_back(ClientJson(client, session, lines));
    } else {
      PrintClient(client, session, lines);
    }
    if (session.status() != KALO_DLL_STATUS_SUCCESS) exitStatus = kFailed;
  }
  if (asJson) PrintJson(std::cout, {{"clients", clients}});
  return exitStatus;
}

}  // namespace

void DefineProbe(common::Command* program) {
  common::Command* command = program->AddCommand(
      "probe", "Open each firmware client and show its version and maximum length");
  command->SetFooter(
      R"(Opens KALO with KaloInit3 and FENU with FenuInit3, and closes both. Sends no commands.

Examples:
  kaloctl probe
  zulisim run --fault ioctl:2=ENOTTY kaloctl probe

Exit status: 0 done, 1 a client cannot be opened, 2 wrong usage. See kaloctl(1).)");
  const auto json = std::make_shared<bool>(false);
  AddJsonFlag(command, json.get());
  command->SetAction([=] { return Probe(*json); });
}

}  // namespace kaloctl
