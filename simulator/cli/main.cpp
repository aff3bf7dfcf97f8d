// zulisim: the security engine in software, for programs that open "/dev/zuli".

#include <algorithm>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "common/command_line.h"
#include "common/standard_streams.h"
#include "simulator/cli/commands.h"
#include "simulator/program/program.h"

namespace {

using zulisim::kOwnFailure;

int Main(int argc, char** argv) {
  CLI::App app("The security engine in software.");
  app.name("zulisim");
  app.require_subcommand(1);
  app.set_version_flag("--version", "zulisim " ZULISIM_VERSION);
  zulisim::Invocation invocation;
  zulisim::DefineRun(&app, &invocation);
  zulisim::DefineServe(&app, &invocation);
  zulisim::DefineTell(&app, &invocation);
  zulisim::DefineCheck(&app, &invocation);
  zulisim::DefineRecord(&app, &invocation);
  zulisim::DefineReplay(&app, &invocation);
  zulisim::DefineShow(&app, &invocation);
  // All after the first "--" is the program's, whatever it looks like.
  std::vector<std::string> arguments(argv + 1, argv + argc);
  const auto separator = std::find(arguments.begin(), arguments.end(), "--");
  if (separator != arguments.end()) {
    invocation.separated = true;
    invocation.program.assign(separator + 1, arguments.end());
    arguments.erase(separator, arguments.end());
  }
  std::reverse(arguments.begin(), arguments.end());  // as CLI11 wants them
  try {
    app.parse(arguments);
    return invocation.run();
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    std::cerr << common::ErrorText(app, error);
    return kOwnFailure;
  }
}

}  // namespace

int main(int argc, char** argv) {
  common::OccupyStandardDescriptors();
  try {
    return Main(argc, argv);
  } catch (const zulisim::ProgramError& error) {
    std::cerr << "zulisim: " << error.what() << "\n";
    return error.status();
  } catch (const std::exception& error) {
    std::cerr << "zulisim: " << error.what() << "\n";
    return kOwnFailure;
  }
}
