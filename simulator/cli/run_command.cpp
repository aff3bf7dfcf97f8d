#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>

#include "common/format.h"
#include "common/text.h"
#include "simulator/cli/commands.h"
#include "simulator/cli/options.h"
#include "simulator/output/output_file.h"
#include "simulator/record/passthrough_device.h"
#include "simulator/record/recorder.h"
#include "simulator/sweep/sweep_run.h"

namespace zulisim {
namespace {

constexpr const char* kRunFooter =
    R"(WHEN is a position of the operation in the run: 3, 3-5, or 3- for the third and all later ones.
zulisim-run(1) explains it, the limits of --device preload, and the exit status.

Examples:
  zulisim run --lose read:2 --lose write:5,opens=3,errno=ENOENT ./driver
  zulisim run --reply kalo:0x10=at:1-2,status:0x80000001 --device fuse ./static_driver)";

constexpr const char* kRecordFooter = R"(zulisim-record(1) explains recordings and the exit status.

Examples:
  zulisim record -o field.zul ./driver                      from the kernel's /dev/zuli
  zulisim record -o loss.zul --scenario loss.toml ./driver  from the software engine)";

struct RunOptions : ProgramOptions {
  std::string recording;  // empty for none
  bool force = false;     // replace an existing recording
  std::string from;       // the kernel's device; empty for the engine
};

// Throws InputError if --only names an unknown client.
std::unique_ptr<Device> MakeDevice(const RunOptions& options) {
  Scenario scenario = options.scenario;
  for (const std::string& name : options.output.style.only.clients) ClientOf(&scenario, name);
  if (options.from.empty()) {
    auto engine = std::make_unique<Engine>(EngineOptions{scenario.clients, false});
    Apply(scenario, engine.get());
    return engine;
  }
  if (access(options.from.c_str(), F_OK) != 0) {
    throw std::runtime_error(common::Format(
        "cannot record the device {}: {}; use --engine or --scenario to record the software engine",
        common::Quoted(options.from), std::strerror(errno)));
  }
  return std::make_unique<PassthroughDevice>(options.from, scenario.clients);
}

int Run(const RunOptions& options) {
  std::vector<NamedFile> inputs = InputFiles(options);
  inputs.push_back({"--from", options.from});
  std::vector<NamedFile> outputs = options.output.Files();
  outputs.push_back({"--output", options.recording});
  CheckOutputs(outputs, inputs);
  const auto program = MakeServedProgram(options);
  const std::unique_ptr<Device> device = MakeDevice(options);
  RunDescription run{options.program, options.scenario.instructions, program->LogFile()};
  if (options.output.redact) {
    run.program.resize(1);
    run.instructions.clear();
  }
  std::optional<OutputFile> file;
  std::optional<Recorder> recorder;
  if (!options.recording.empty()) {
    file.emplace("recording", options.recording,
                 options.force ? OutputFile::Existing::kReplace : OutputFile::Existing::kRefuse);
    recorder.emplace(
        device.get(), [&file](const std::string& line) { file->Write(line); },
        RecordingHeader{"zulisim " ZULISIM_VERSION, "", run.program, options.scenario.clients,
                        options.output.redact});
  }
  RunOutput output(options.output, run, device.get());
  int status = program->Run(*device);
  recorder.reset();
  bool complete = output.Finish(status);
  if (const auto* engine = dynamic_cast<const Engine*>(device.get())) {
    status = ReportUnfulfilled(*engine, options.strict, status);
  }
  if (file) {
    if (!file->Written()) {
      std::cerr << common::Format("zulisim: {} was not written: there was no operation to record\n",
                                  common::Quoted(options.recording));
    }
    complete = file->Close() && complete;
  }
  return complete ? status : kOwnFailure;
}

// Adds the options of both commands.
void AddRunOptions(common::Command* command, RunOptions* options) {
  AddProgramOptions(command, options);
  AddInstructionOptions(command, &options->scenario, &options->strict);
  command->TakeProgram(&options->program);
}

}  // namespace

void DefineRun(common::Command* program) {
  common::Command* command = program->AddCommand(
      "run",
      "Runs a program with a software engine behind \"/dev/zuli\" and prints its operations.",
      kRunFooter);
  const auto options = std::make_shared<RunOptions>();
  AddRunOptions(command, options.get());
  command->SetAction([=] {
    // A run of 'zulisim sweep' writes a recording instead of a transcript. The program does not see
    // the variable.
    if (const char* const recording = getenv(kRecordingVariable)) {
      options->recording = recording;
      options->output.quiet = true;
      unsetenv(kRecordingVariable);
    }
    return Run(*options);
  });
}

void DefineRecord(common::Command* program) {
  common::Command* command = program->AddCommand(
      "record", "Runs a program and records its operations on a device, or on the software engine.",
      kRecordFooter);
  const auto options = std::make_shared<RunOptions>();
  const auto engine = std::make_shared<bool>(false);
  command->AddFile("-o,--output", &options->recording, "Write the recording to FILE");
  command->Require({"--output"});
  command->AddFile("--from", &options->from, "Record this device (default: \"/dev/zuli\")", "PATH");
  command->AddFlag("--engine", engine.get(),
                   "Record the software engine; --scenario and the options below imply it");
  command->AddFlag("--force", &options->force, "Replace an existing FILE");
  command->AddFlag("--redact", &options->output.redact,
                   "Write only headers and lengths, to all outputs");
  AddRunOptions(command, options.get());
  command->SetAction([=] {
    const bool usesEngine = *engine || !options->scenario.instructions.empty();
    if (usesEngine && !options->from.empty()) {
      throw common::UsageError(
          "--from: cannot be combined with options for the software engine; remove --from or those "
          "options");
    }
    if (!usesEngine && options->from.empty()) options->from = "/dev/zuli";
    return Run(*options);
  });
}

}  // namespace zulisim
