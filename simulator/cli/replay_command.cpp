#include <iostream>
#include <memory>
#include <utility>

#include "common/text.h"
#include "simulator/cli/commands.h"
#include "simulator/cli/options.h"
#include "simulator/record/replay_device.h"

namespace zulisim {
namespace {

constexpr int kDiverged = 124;
constexpr int kReachedCut = 123;

constexpr const char* kReplayDescription =
    "Starts a program like 'run' and plays the device's side of a recording back to it, byte for "
    "byte, up to the first operation in which the program does not do what was recorded.";

constexpr const char* kReplayFooter = R"(
Opens are answered in the order of the recording. Every other operation must be the next
one on its connection; the order between connections is free. Connections that did the same
so far are interchangeable, so threads may race.

Exit status: 124 when the program left the recording, 123 when it came to where the
recording is cut; otherwise as with 'zulisim run'.)";

struct ReplayOptions : ProgramOptions {
  std::string file;
  bool inTime = false;
};

// "all 7 operations of 'f' were replayed"
std::string Replayed(std::size_t operations, const std::string& whose) {
  const std::string count = std::to_string(operations);
  return (operations == 1 ? "the 1 operation " + whose + " was"
                          : "all " + count + " operations " + whose + " were") +
         " replayed\n";
}

int Report(const ReplayDevice& device, const std::string& file, std::size_t operations,
           int status) {
  if (const auto divergence = device.FirstDivergence()) {
    std::cerr << "zulisim: the program left the recording '" << file << "' "
              << DivergenceText(*divergence);
    return kDiverged;
  }
  if (device.ReachedCut()) {
    std::cerr << "zulisim: the program went on after the cut: "
              << Replayed(operations, "that '" + file + "' holds");
    return kReachedCut;
  }
  std::cerr << "zulisim: " << Replayed(operations, "of '" + file + "'");
  return status;
}

int Replay(const ReplayOptions& options, const std::vector<std::string>& arguments) {
  Recording recording = ReadRecording(options.file);
  const std::size_t operations = recording.operations.size();
  if (recording.header.redacted) {
    throw common::InputError(common::Quoted(options.file) +
                             " is redacted: it lacks the bodies that a replay answers with; record "
                             "without --redact what is to be replayed");
  }
  if (recording.cut) {
    std::cerr << "zulisim: '" << options.file << "' is cut after operation " << operations
              << "; it is replayed up to there\n";
  }
  std::vector<NamedFile> inputs = InputFiles(options, arguments);
  inputs.push_back({"the recording", options.file});
  CheckOutputs(options.output.Files(), inputs);
  const auto program = MakeServedProgram(options, arguments);
  ReplayDevice device(std::move(recording), options.inTime);
  RunOutput output(options.output, {arguments, {"replay of " + options.file}, program->LogFile()},
                   &device);
  const int programStatus = program->Run(device);
  const bool complete = output.Finish(programStatus);
  device.End();
  const int status = Report(device, options.file, operations, programStatus);
  return complete ? status : kOwnFailure;
}

}  // namespace

void DefineReplay(common::Command* program) {
  common::Command* command = program->AddCommand("replay", kReplayDescription);
  command->SetFooter(kReplayFooter);
  const auto options = std::make_shared<ReplayOptions>();
  command->AddFile("FILE", &options->file, "The recording").Require();
  command->AddFlag("--in-time", &options->inTime, "Let each operation take as long as it did");
  AddProgramOptions(command, options.get());
  command->TakeProgram(&options->program);
  command->SetAction([=] { return Replay(*options, options->program); });
}

}  // namespace zulisim
