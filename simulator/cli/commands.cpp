#include "simulator/cli/commands.h"

#include <exception>
#include <iostream>

#include "simulator/program/program.h"

namespace zulisim {

int RunCommandLine(const std::function<void(common::Command*)>& define, int argc,
                   const char* const* argv) {
  try {
    common::CommandLine line("zulisim", "The security engine in software.", ZULISIM_VERSION);
    define(line.root());
    return line.Run(argc, argv);
  } catch (const ProgramError& error) {
    std::cerr << "zulisim: " << error.what() << "\n";
    return error.status();
  } catch (const std::exception& error) {
    std::cerr << "zulisim: " << error.what() << "\n";
    return kOwnFailure;
  }
}

}  // namespace zulisim
