#include <iostream>
#include <memory>
#include <utility>

#include "common/format.h"
#include "common/text.h"
#include "simulator/cli/commands.h"
#include "simulator/cli/options.h"
#include "simulator/record/replay_device.h"

namespace zulisim {
namespace {

constexpr int kDiverged = 124;
constexpr int kReachedCut = 123;

constexpr const char* kReplayFooter =
    R"(Examples:
  zulisim replay field.zul ./driver

Exit status: 124 when the program left the recording, 123 when it reached the place where the
recording is cut; otherwise as with 'zulisim run'. See zulisim-replay(1).)";

struct ReplayOptions : ProgramOptions {
  std::string file;
  bool inTime = false;
};

int Report(const ReplayDevice& device, const std::string& file, std::size_t operations,
           int status) {
  const std::string name = common::Quoted(file);
  const std::string divergence = device.Divergence();
  if (!divergence.empty()) {
    std::cerr << common::Format("zulisim: the program left the recording {} {}", name, divergence);
    return kDiverged;
  }
  const bool reachedCut = device.ReachedCut();
  std::cerr << common::Format("zulisim: replayed {} of {}{}\n",
                              common::Counted(operations, "operation"), name,
                              reachedCut ? ", and the program went on after the cut" : "");
  return reachedCut ? kReachedCut : status;
}

int Replay(const ReplayOptions& options) {
  Recording recording = ReadRecording(options.file);
  const std::size_t operations = recording.operations.size();
  if (recording.header.redacted) {
    throw common::InputError(common::Format(
        "cannot replay {}: it is redacted and holds no message bodies; record without --redact",
        common::Quoted(options.file)));
  }
  std::vector<NamedFile> inputs = InputFiles(options);
  inputs.push_back({"the recording", options.file});
  CheckOutputs(options.output.Files(), inputs);
  const auto program = MakeServedProgram(options);
  ReplayDevice device(std::move(recording), options.inTime);
  RunOutput output(options.output,
                   {options.program, {"replay of " + options.file}, program->LogFile()}, &device);
  const int programStatus = program->Run(device);
  const bool complete = output.Finish(programStatus);
  device.End();
  const int status = Report(device, options.file, operations, programStatus);
  return complete ? status : kOwnFailure;
}

}  // namespace

void DefineReplay(common::Command* program) {
  common::Command* command = program->AddCommand(
      "replay",
      "Runs a program and answers its operations as recorded, up to the first difference.",
      kReplayFooter);
  const auto options = std::make_shared<ReplayOptions>();
  command->AddFile("FILE", &options->file, "The recording");
  command->Require({"FILE"});
  command->AddFlag("--in-time", &options->inTime,
                   "Let each operation take as long as it did in the recording");
  AddProgramOptions(command, options.get());
  command->TakeProgram(&options->program);
  command->SetAction([=] { return Replay(*options); });
}

}  // namespace zulisim
