#include <cstdlib>
#include <memory>
#include <optional>

#include "simulator/cli/commands.h"
#include "simulator/cli/options.h"
#include "simulator/output/output_file.h"
#include "simulator/record/recorder.h"
#include "simulator/sweep/sweep_run.h"

namespace zulisim {
namespace {

constexpr const char* kRunFooter = R"(
WHEN is a position of the operation in the run: 3, 3-5, or 3- for the third and all later ones.
zulisim-run(1) explains it, the limits of --device preload, and the exit status.

Examples:
  zulisim run --lose read:2 --lose write:5,opens=3,errno=ENOENT ./driver
  zulisim run --reply kalo:0x10=at:1-2,status:0x80000001 --device fuse ./static_driver)";

// 'zulisim sweep' names a file in kRecordingVariable: the run then writes a recording of all
// operations to it instead of a transcript to standard error. The program does not see the
// variable.
int Run(const ProgramOptions& options) {
  CheckOutputs(options.output.Files(), InputFiles(options));
  const char* const recording = getenv(kRecordingVariable);
  OutputOptions outputOptions = options.output;
  std::optional<OutputFile> file;
  if (recording != nullptr) {
    file.emplace("recording", recording);
    outputOptions.quiet = true;
    unsetenv(kRecordingVariable);
  }
  const auto program = MakeServedProgram(options);
  Engine engine({options.scenario.clients, false});
  Apply(options.scenario, &engine);
  std::optional<Recorder> recorder;
  if (file) {
    recorder.emplace(
        &engine, [&file](const std::string& line) { file->Write(line); },
        RecordingHeader{"zulisim " ZULISIM_VERSION, "", options.program, options.scenario.clients});
  }
  RunOutput output(outputOptions,
                   {options.program, options.scenario.instructions, program->LogFile()}, &engine);
  const int programStatus = program->Run(engine);
  recorder.reset();
  const bool complete = output.Finish(programStatus) && (!file || file->Close());
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
