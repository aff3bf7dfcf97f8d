// zulisim: the security engine in software, for programs that open "/dev/zuli".

#include <exception>
#include <iostream>

#include "common/standard_streams.h"
#include "simulator/cli/commands.h"
#include "simulator/program/program.h"

namespace zulisim {
namespace {

// Returns the exit status. Prints a failure on standard error.
int RunCommandLine(int argc, const char* const* argv) {
  try {
    common::Command zulisim("zulisim", "The security engine in software.", "", ZULISIM_VERSION);
    for (const auto define : {DefineRun, DefineSweep, DefineServe, DefineTell, DefineCheck,
                              DefineRecord, DefineReplay, DefineShow}) {
      define(&zulisim);
    }
    return zulisim.Run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "zulisim: " << error.what() << "\n";
    const auto* const failure = dynamic_cast<const ProgramError*>(&error);
    return failure != nullptr ? failure->status() : kOwnFailure;
  }
}

}  // namespace
}  // namespace zulisim

int main(int argc, char** argv) {
  common::PrepareStandardStreams();
  const int status = zulisim::RunCommandLine(argc, argv);
  return common::FlushStandardOutput("zulisim") ? status : zulisim::kOwnFailure;
}
