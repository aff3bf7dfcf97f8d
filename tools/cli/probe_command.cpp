#include <cstdio>
#include <iostream>

#include <CLI/CLI.hpp>

#include "common/colours.h"
#include "tools/call/driver_session.h"
#include "tools/call/log_capture.h"
#include "tools/call/status_text.h"
#include "tools/cli/commands.h"
#include "transport/kalo_status.h"

namespace kaloctl {
namespace {

int Probe() {
  const common::Colours colours = common::ColoursFor(stdout);
  LogCapture log(LogCapture::Detail::kTrace);
  int exitStatus = kDone;
  for (const Client client : {Client::kKalo, Client::kFenu}) {
    const DriverSession session(client, Generation::kVersion3);
    const std::vector<std::string> lines = log.Take();
    std::cout << colours.bold << ClientName(client) << colours.reset << "  ";
    if (session.status() == KALO_DLL_STATUS_SUCCESS) {
      const ZuliConnectRecord::Properties properties = session.Properties();
      std::cout << "protocol version " << +properties.protocolVersion << ", maximum message length "
                << properties.maxMessageLength << " bytes\n";
    } else {
      std::cout << session.InitName() << " failed: " << colours.bad << StatusText(session.status())
                << colours.reset << '\n';
      PrintFailure(std::cout, colours, "      ", session.status(), true, lines);
      exitStatus = kFailed;
    }
  }
  return exitStatus;
}

}  // namespace

void AddProbeCommand(CLI::App& app, int& exitStatus) {
  CLI::App* command = app.add_subcommand(
      "probe", "Open each firmware client and show its version and maximum length");
  command->footer(
      R"(KALO is opened with KaloInit3, FENU with FenuInit3, and both are closed again; no command is
sent. A client that cannot be opened is shown with what the library recorded, and the exit
status is then 1.)");
  command->callback([&exitStatus] { exitStatus = Probe(); });
}

}  // namespace kaloctl
