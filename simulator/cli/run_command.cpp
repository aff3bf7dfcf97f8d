#include <memory>

#include "simulator/cli/commands.h"
#include "simulator/cli/options.h"

namespace zulisim {
namespace {

constexpr const char* kRunFooter = R"(
WHEN is a position of the operation in the run: 3, 3-5, or 3- for the third and all later ones.
zulisim-run(1) explains it, the limits of --device preload, and the exit status.

Examples:
  zulisim run --lose read:2 --lose write:5,opens=3,errno=ENOENT ./driver
  zulisim run --reply kalo:0x10=at:1-2,status:0x80000001 --device fuse ./static_driver)";

int Run(const ProgramOptions& options) {
  CheckOutputs(options.output.Files(), InputFiles(options));
  const auto program = MakeServedProgram(options);
  Engine engine({options.scenario.clients, false});
  Apply(options.scenario, &engine);
  RunOutput output(options.output,
                   {options.program, options.scenario.instructions, program->LogFile()}, &engine);
  const int programStatus = program->Run(engine);
  const bool complete = output.Finish(programStatus);
  const int status = ReportUnfulfilled(engine, options.strict, programStatus);
  return complete ? status : kOwnFailure;
}

}  // namespace

void DefineRun(common::Command* program) {
  common::Command* command = program->AddCommand(
      "run",
      "Runs a program with a software engine behind \"/dev/zuli\" and prints its operations.");
  command->SetFooter(kRunFooter);
  const auto options = std::make_shared<ProgramOptions>();
  AddProgramOptions(command, options.get());
  AddInstructionOptions(command, &options->scenario, &options->strict);
  command->TakeProgram(&options->program);
  command->SetAction([=] { return Run(*options); });
}

}  // namespace zulisim
