// zulisim: the security engine in software, for programs that open "/dev/zuli".

#include "common/standard_streams.h"
#include "simulator/cli/commands.h"

int main(int argc, char** argv) {
  common::PrepareStandardStreams();
  const auto define = [](common::Command* program) {
    for (const auto each : {zulisim::DefineRun, zulisim::DefineSweep, zulisim::DefineServe,
                            zulisim::DefineTell, zulisim::DefineCheck, zulisim::DefineRecord,
                            zulisim::DefineReplay, zulisim::DefineShow}) {
      each(program);
    }
  };
  const int status = zulisim::RunCommandLine(define, argc, argv);
  return common::FlushStandardOutput("zulisim") ? status : zulisim::kOwnFailure;
}
