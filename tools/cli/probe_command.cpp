#include <cstdio>
#include <iostream>
#include <memory>

#include "common/colours.h"
#include "tools/call/driver_session.h"
#include "tools/call/log_capture.h"
#include "tools/call/status_text.h"
#include "tools/cli/commands.h"
#include "tools/cli/json.h"
#include "transport/kalo_status.h"

namespace kaloctl {
namespace {

Json ClientJson(Client client, const DriverSession& session, const std::vector<std::string>& log) {
  const bool connected = session.status() == KALO_DLL_STATUS_SUCCESS;
  Json json = {{"name", ClientName(client)},
               {"connected", connected},
               {"protocolVersion", nullptr},
               {"maxMessageLength", nullptr},
               {"error", nullptr}};
  if (connected) {
    const ZuliConnectRecord::Properties properties = session.Properties();
    json["protocolVersion"] = properties.protocolVersion;
    json["maxMessageLength"] = properties.maxMessageLength;
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
    std::cout << "protocol version " << +properties.protocolVersion << ", maximum message length "
              << properties.maxMessageLength << " bytes\n";
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
      R"(KALO is opened with KaloInit3, FENU with FenuInit3, and both are closed again; no command is
sent. A client that cannot be opened is shown with what the library recorded, and the exit
status is then 1.)");
  const auto json = std::make_shared<bool>(false);
  AddJsonFlag(command, json.get());
  command->SetAction([=] { return Probe(*json); });
}

}  // namespace kaloctl
