// zulisim: the security engine in software, for programs that open "/dev/zuli".

#include <exception>
#include <iostream>

#include "common/command_line.h"
#include "common/standard_streams.h"
#include "simulator/cli/commands.h"
#include "simulator/program/program.h"

namespace {

int Main(int argc, char** argv) {
  common::CommandLine line("zulisim", "The security engine in software.", ZULISIM_VERSION);
  for (const auto define :
       {zulisim::DefineRun, zulisim::DefineServe, zulisim::DefineTell, zulisim::DefineCheck,
        zulisim::DefineRecord, zulisim::DefineReplay, zulisim::DefineShow}) {
    define(line.root());
  }
  return line.Run(argc, argv);
}

}  // namespace

int main(int argc, char** argv) {
  common::PrepareStandardStreams();
  int status = zulisim::kOwnFailure;
  try {
    status = Main(argc, argv);
  } catch (const zulisim::ProgramError& error) {
    std::cerr << "zulisim: " << error.what() << "\n";
    status = error.status();
  } catch (const std::exception& error) {
    std::cerr << "zulisim: " << error.what() << "\n";
  }
  return common::FlushStandardOutput("zulisim") ? status : zulisim::kOwnFailure;
}
